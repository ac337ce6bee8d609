// Files.c - the interposed calls on files and descriptors.
//
// What is not a camera goes to the next definition unchanged. These calls keep errno as the call
// that they stand for would.

#include <errno.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <stdarg.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Device.h"
#include "Export.h"
#include "Ioctl.h"
#include "Places.h"
#include "Real.h"
#include "Stream.h"

static int openCamera(int directory, const char* path, int flags) {
  const Place place = placeFind(directory, path);
  if (place.kind != placeNone) return placeOpen(&place, flags);
  errno = ENOENT;
  return -1;
}

static int openAnywhere(int directory, const char* path, int flags, mode_t mode) {
  if (!realReady()) return realOpenat(directory, path, flags, mode);
  const int saved = errno;
  // Creating would make a plain file where the camera is.
  if ((flags & O_CREAT) && realFaccessat(directory, path, F_OK, 0) != 0) {
    if (errno == ENOENT) {
      const Place place = placeFind(directory, path);
      if (place.kind != placeNone) return placeOpen(&place, flags);
    }
    errno = saved;
  }
  const int descriptor = realOpenat(directory, path, flags, mode);
  if (descriptor < 0) return errno == ENOENT ? openCamera(directory, path, flags) : -1;
  // A number that the kernel hands out again was closed behind our back.
  handleClosed(descriptor);
  return descriptor;
}

static bool takesMode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

#define MODE_OF(flags, last)            \
  mode_t mode = 0;                      \
  if (takesMode(flags)) {               \
    va_list arguments;                  \
    va_start(arguments, last);          \
    mode = va_arg(arguments, unsigned); \
    va_end(arguments);                  \
  }

LENSLARK_EXPORT int open(const char* path, int flags, ...) {
  MODE_OF(flags, flags)
  return openAnywhere(AT_FDCWD, path, flags, mode);
}

LENSLARK_EXPORT int open64(const char* path, int flags, ...) {
  MODE_OF(flags, flags)
  return openAnywhere(AT_FDCWD, path, flags | O_LARGEFILE, mode);
}

LENSLARK_EXPORT int openat(int directory, const char* path, int flags, ...) {
  MODE_OF(flags, flags)
  return openAnywhere(directory, path, flags, mode);
}

LENSLARK_EXPORT int openat64(int directory, const char* path, int flags, ...) {
  MODE_OF(flags, flags)
  return openAnywhere(directory, path, flags | O_LARGEFILE, mode);
}

LENSLARK_EXPORT int creat(const char* path, mode_t mode) {
  return openAnywhere(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

LENSLARK_EXPORT int creat64(const char* path, mode_t mode) {
  return openAnywhere(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC | O_LARGEFILE, mode);
}

// The twins that fortified programs call, for flags that need no mode.
LENSLARK_EXPORT int __open_2(const char* path, int flags);
LENSLARK_EXPORT int __open_2(const char* path, int flags) {
  return openAnywhere(AT_FDCWD, path, flags, 0);
}

LENSLARK_EXPORT int __open64_2(const char* path, int flags);
LENSLARK_EXPORT int __open64_2(const char* path, int flags) {
  return openAnywhere(AT_FDCWD, path, flags | O_LARGEFILE, 0);
}

LENSLARK_EXPORT int __openat_2(int directory, const char* path, int flags);
LENSLARK_EXPORT int __openat_2(int directory, const char* path, int flags) {
  return openAnywhere(directory, path, flags, 0);
}

LENSLARK_EXPORT int __openat64_2(int directory, const char* path, int flags);
LENSLARK_EXPORT int __openat64_2(int directory, const char* path, int flags) {
  return openAnywhere(directory, path, flags | O_LARGEFILE, 0);
}

static FILE* openStream(const char* path, const char* mode) {
  FILE* stream = real.fopen ? real.fopen(path, mode) : NULL;
  if (stream || errno != ENOENT || mode[0] != 'r' || !realReady()) return stream;
  const Place place = placeFind(AT_FDCWD, path);
  if (place.kind != placeFile) {
    errno = ENOENT;
    return NULL;
  }
  const int descriptor = placeOpen(&place, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return NULL;
  stream = fdopen(descriptor, "r");
  if (!stream) realClose(descriptor);
  return stream;
}

LENSLARK_EXPORT FILE* fopen(const char* restrict path, const char* restrict mode) {
  // A stream cannot be had from the kernel: an early caller needs the C library now.
  if (!real.fopen) realResolve();
  return openStream(path, mode);
}

LENSLARK_EXPORT FILE* fopen64(const char* restrict path, const char* restrict mode) {
  return fopen(path, mode);
}

LENSLARK_EXPORT FILE* freopen(const char* restrict path, const char* restrict mode,
                              FILE* restrict stream) {
  if (!real.freopen) realResolve();
  if (!path || !realReady()) return real.freopen(path, mode, stream);
  // Asked before: the C library closes the stream even if nothing is there.
  const int saved = errno;
  const bool missing = realFaccessat(AT_FDCWD, path, F_OK, 0) != 0 && errno == ENOENT;
  const Place place = missing ? placeFind(AT_FDCWD, path) : (Place){.kind = placeNone};
  errno = saved;
  const int descriptor =
      place.kind == placeFile && mode[0] == 'r' ? placeOpen(&place, O_RDONLY | O_CLOEXEC) : -1;
  if (descriptor < 0) return real.freopen(path, mode, stream);
  char link[64];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
  FILE* reopened = real.freopen(link, mode, stream);
  realClose(descriptor);
  return reopened;
}

LENSLARK_EXPORT FILE* freopen64(const char* restrict path, const char* restrict mode,
                                FILE* restrict stream) {
  return freopen(path, mode, stream);
}

LENSLARK_EXPORT int close(int descriptor) {
  handleClosed(descriptor);
  return realClose(descriptor);
}

LENSLARK_EXPORT int close_range(unsigned first, unsigned last, int flags) {
  if (!real.close_range) {
    errno = ENOSYS;
    return -1;
  }
  if (!((unsigned)flags & CLOSE_RANGE_CLOEXEC)) handleRangeClosed(first, last);
  return real.close_range(first, last, flags);
}

LENSLARK_EXPORT void closefrom(int first) {
  if (!real.closefrom) realResolve();
  handleRangeClosed(first < 0 ? 0 : (unsigned)first, UINT32_MAX);
  real.closefrom(first);
}

LENSLARK_EXPORT int dup(int descriptor) {
  if (!real.dup) realResolve();
  const int copy = real.dup(descriptor);
  if (copy >= 0) handleCopied(descriptor, copy);
  return copy;
}

// Forgets a camera that is about to be replaced, unless the call will fail.
static void replacing(int descriptor, int copy) {
  if (descriptor != copy && handleIs(copy) && real.fcntl(descriptor, F_GETFD) >= 0) {
    handleClosed(copy);
  }
}

LENSLARK_EXPORT int dup2(int descriptor, int copy) {
  if (!real.dup2) realResolve();
  replacing(descriptor, copy);
  const int outcome = real.dup2(descriptor, copy);
  if (outcome >= 0) handleCopied(descriptor, copy);
  return outcome;
}

LENSLARK_EXPORT int dup3(int descriptor, int copy, int flags) {
  if (!real.dup3) realResolve();
  replacing(descriptor, copy);
  const int outcome = real.dup3(descriptor, copy, flags);
  if (outcome >= 0) handleCopied(descriptor, copy);
  return outcome;
}

static int control(int descriptor, int command, void* argument) {
  if (!real.fcntl) realResolve();
  // A camera gives no notice by signal, and its mark stays.
  if ((command == F_SETSIG || command == F_GETSIG) && handleIs(descriptor)) return 0;
  const int outcome = real.fcntl(descriptor, command, argument);
  if (outcome >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC)) {
    handleCopied(descriptor, outcome);
  }
  return outcome;
}

LENSLARK_EXPORT int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return control(descriptor, command, argument);
}

LENSLARK_EXPORT int fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return control(descriptor, command, argument);
}

LENSLARK_EXPORT int ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  Handle* handle = handlePin(descriptor);
  if (!handle) {
    const int outcome = realIoctl(descriptor, request, argument);
    const bool unknown = outcome < 0 && errno == ENOTTY && _IOC_TYPE(request) == 'V';
    handle = unknown && realReady() ? handleAdopt(descriptor) : NULL;
    if (!handle) return outcome;
  }
  const int outcome = cameraIoctl(handle, descriptor, request, argument);
  handleUnpin(handle);
  return outcome;
}

LENSLARK_EXPORT ssize_t read(int descriptor, void* into, size_t size) {
  Handle* handle = handlePin(descriptor);
  if (!handle) return realRead(descriptor, into, size);
  const ssize_t outcome = streamRead(handle, descriptor, into, size);
  handleUnpin(handle);
  return outcome;
}

LENSLARK_EXPORT ssize_t __read_chk(int descriptor, void* into, size_t size, size_t room);
LENSLARK_EXPORT ssize_t __read_chk(int descriptor, void* into, size_t size, size_t room) {
  if (size > room) __builtin_trap();  // The overflow that this twin exists to catch.
  return read(descriptor, into, size);
}

LENSLARK_EXPORT void* mmap(void* address, size_t length, int protection, int flags, int descriptor,
                           off_t offset) {
  Handle* handle = (flags & MAP_ANONYMOUS) ? NULL : handlePin(descriptor);
  if (!handle) return realMmap(address, length, protection, flags, descriptor, offset);
  void* mapped = streamMap(handle, address, length, protection, flags, offset);
  handleUnpin(handle);
  return mapped;
}

LENSLARK_EXPORT void* mmap64(void* address, size_t length, int protection, int flags,
                             int descriptor, off_t offset) {
  return mmap(address, length, protection, flags, descriptor, offset);
}

LENSLARK_EXPORT int munmap(void* address, size_t length) {
  streamUnmapped(address, length);
  return realMunmap(address, length);
}
