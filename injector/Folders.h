// Folders.h - descriptors of directories that only we have.
//
// libudev walks to a device one name at a time, each opened below the last. So what is opened of
// such a directory is a descriptor of "/sys/class", of which is kept what it stands for: the kernel
// finds none of our names there, and says of it that it belongs to sysfs.
//
// Threads: any, without a lock. Owns: nothing but the notes. Fails: with errno.
#pragma once

#include "Places.h"

/// Opens a directory of ours with open()'s flags. The descriptor, or -1 with errno.
int folderOpen(const Place* place, int flags);

/// True if a descriptor stands for a directory of ours, or a link to one; then `into` tells which.
/// Costs one load while there is none.
bool folderFind(int descriptor, Place* into);

/// The path of that directory, or NULL.
const char* folderName(int descriptor);

/// Notes that `copy` refers to what `descriptor` does.
void folderCopied(int descriptor, int copy);

/// Notes that a descriptor was closed, or was handed out by the kernel for something else.
void folderClosed(int descriptor);
