// UserMemory.h - copies between this library and pointers that the host program handed in.
//
// A kernel answers a bad pointer with EFAULT; so does this, by letting the kernel do the copy.
// Threads: any. Owns: nothing. Fails: false with errno EFAULT.
#pragma once

#include <stdbool.h>
#include <stddef.h>

/// Copies `size` bytes from the host's `from`.
bool copyFromUser(void* into, const void* from, size_t size);

/// Copies `size` bytes to the host's `into`.
bool copyToUser(void* into, const void* from, size_t size);
