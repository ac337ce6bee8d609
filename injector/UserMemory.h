// UserMemory.h - copies by the kernel, where a pointer cannot be trusted.
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

/// Copies `size` bytes out of memory that may raise a signal when it is touched. Fails also where a
/// sandbox forbids it, with the sandbox's errno.
bool copyGuarded(void* into, const void* from, size_t size);
