// LibV4l2.c - the entry points of libv4l2, which goes to the kernel by raw system calls and would
// never meet the calls of Files.c. A camera of ours needs none of its conversions.
//
// A program that loads libv4l2 itself and asks it for its functions gets this library instead,
// which has them all and goes on to libv4l2's for any other device.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Device.h"
#include "Export.h"
#include "Places.h"
#include "Real.h"
#include "Stream.h"

// The real library's function: it may have been loaded where RTLD_NEXT does not look.
static void* next(const char* name) {
  void* symbol = dlsym(RTLD_NEXT, name);
  if (symbol) return symbol;
  void* library = NEXT(dlopen)("libv4l2.so.0", RTLD_LAZY | RTLD_NOLOAD);
  return library ? dlsym(library, name) : NULL;
}

// Declares `function` as the real one, of the given type.
#define FUNCTION(name, result, ...)             \
  result (*function)(__VA_ARGS__) = NULL;       \
  do {                                          \
    void* symbol = next(name);                  \
    memcpy(&function, &symbol, sizeof(symbol)); \
  } while (0)

// This library in the place of libv4l2, which stays loaded, or NULL if there is none.
static void* standIn(const char* path, int flags) {
  Dl_info own;
  void* library = NEXT(dlopen)(path, flags);
  if (!library || dladdr(&real, &own) == 0) return library;
  void* ours = NEXT(dlopen)(own.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
  return ours ? ours : library;
}

// The last call leaves by a jump, so that the next definition sees who called: its search path and
// namespace count.
LENSLARK_EXPORT void* dlopen(const char* path, int flags) {
  void* ours = path && strstr(path, "libv4l2.so") && realReady() ? standIn(path, flags) : NULL;
  return ours ? ours : NEXT(dlopen)(path, flags);
}

LENSLARK_EXPORT int v4l2_open(const char* path, int flags, ...);
LENSLARK_EXPORT int v4l2_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  const bool missing = realFaccessat(AT_FDCWD, path, F_OK, 0) != 0 && errno == ENOENT;
  if (missing && realReady() && placeFind(AT_FDCWD, path).kind != placeNone) {
    return open(path, flags, mode);
  }
  FUNCTION("v4l2_open", int, const char*, int, ...);
  return function ? function(path, flags, mode) : open(path, flags, mode);
}

LENSLARK_EXPORT int v4l2_fd_open(int descriptor, int flags);
LENSLARK_EXPORT int v4l2_fd_open(int descriptor, int flags) {
  if (handleIs(descriptor)) return descriptor;
  FUNCTION("v4l2_fd_open", int, int, int);
  return function ? function(descriptor, flags) : descriptor;
}

LENSLARK_EXPORT int v4l2_close(int descriptor);
LENSLARK_EXPORT int v4l2_close(int descriptor) {
  if (handleIs(descriptor)) return close(descriptor);
  FUNCTION("v4l2_close", int, int);
  return function ? function(descriptor) : close(descriptor);
}

LENSLARK_EXPORT int v4l2_dup(int descriptor);
LENSLARK_EXPORT int v4l2_dup(int descriptor) {
  if (handleIs(descriptor)) return dup(descriptor);
  FUNCTION("v4l2_dup", int, int);
  return function ? function(descriptor) : dup(descriptor);
}

LENSLARK_EXPORT int v4l2_ioctl(int descriptor, unsigned long request, ...);
LENSLARK_EXPORT int v4l2_ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (handleIs(descriptor)) return ioctl(descriptor, request, argument);
  FUNCTION("v4l2_ioctl", int, int, unsigned long, ...);
  return function ? function(descriptor, request, argument) : ioctl(descriptor, request, argument);
}

LENSLARK_EXPORT ssize_t v4l2_read(int descriptor, void* into, size_t size);
LENSLARK_EXPORT ssize_t v4l2_read(int descriptor, void* into, size_t size) {
  if (handleIs(descriptor)) return read(descriptor, into, size);
  FUNCTION("v4l2_read", ssize_t, int, void*, size_t);
  return function ? function(descriptor, into, size) : read(descriptor, into, size);
}

LENSLARK_EXPORT ssize_t v4l2_write(int descriptor, const void* from, size_t size);
LENSLARK_EXPORT ssize_t v4l2_write(int descriptor, const void* from, size_t size) {
  if (handleIs(descriptor)) return write(descriptor, from, size);
  FUNCTION("v4l2_write", ssize_t, int, const void*, size_t);
  return function ? function(descriptor, from, size) : write(descriptor, from, size);
}

LENSLARK_EXPORT void* v4l2_mmap(void* address, size_t length, int protection, int flags,
                                int descriptor, int64_t offset);
LENSLARK_EXPORT void* v4l2_mmap(void* address, size_t length, int protection, int flags,
                                int descriptor, int64_t offset) {
  if (handleIs(descriptor)) return mmap(address, length, protection, flags, descriptor, offset);
  FUNCTION("v4l2_mmap", void*, void*, size_t, int, int, int, int64_t);
  return function ? function(address, length, protection, flags, descriptor, offset)
                  : mmap(address, length, protection, flags, descriptor, offset);
}

LENSLARK_EXPORT int v4l2_munmap(void* address, size_t length);
LENSLARK_EXPORT int v4l2_munmap(void* address, size_t length) {
  streamUnmapped(address, length);
  FUNCTION("v4l2_munmap", int, void*, size_t);
  return function ? function(address, length) : munmap(address, length);
}

LENSLARK_EXPORT int v4l2_get_control(int descriptor, int control);
LENSLARK_EXPORT int v4l2_get_control(int descriptor, int control) {
  if (handleIs(descriptor)) {
    errno = EINVAL;
    return -1;
  }
  FUNCTION("v4l2_get_control", int, int, int);
  if (function) return function(descriptor, control);
  errno = EINVAL;
  return -1;
}

LENSLARK_EXPORT int v4l2_set_control(int descriptor, int control, int value);
LENSLARK_EXPORT int v4l2_set_control(int descriptor, int control, int value) {
  if (handleIs(descriptor)) {
    errno = EINVAL;
    return -1;
  }
  FUNCTION("v4l2_set_control", int, int, int, int);
  if (function) return function(descriptor, control, value);
  errno = EINVAL;
  return -1;
}
