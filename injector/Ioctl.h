// Ioctl.h - the V4L2 requests.
//
// Threads: any. Owns: nothing. Fails: -1 with errno as the kernel's driver core answers; ENOTTY for
// what a simple camera does not know.
#pragma once

#include "Device.h"

/// ioctl() on a camera's descriptor.
int cameraIoctl(Handle* handle, int descriptor, unsigned long request, void* argument);
