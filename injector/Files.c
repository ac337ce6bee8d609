// Files.c - the interposed calls on files and descriptors.
//
// What is not a camera goes to the next definition unchanged. These calls keep errno as the call
// that they stand for would.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/close_range.h>
#include <stdarg.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Device.h"
#include "Export.h"
#include "Folders.h"
#include "Ioctl.h"
#include "Places.h"
#include "Real.h"
#include "Stream.h"
#include "UserMemory.h"

static int openCamera(int directory, const char* path, int flags) {
  const Place place = placeFind(directory, path);
  return place.kind == placeNone ? -1 : placeOpen(&place, flags);
}

// Creating would make a plain file where the camera is: true if it was opened instead, or failed
// to.
static bool createsCamera(int directory, const char* path, int flags, int* outcome) {
  if (!(flags & O_CREAT) || !realReady()) return false;
  const int saved = errno;
  if (realFaccessat(directory, path, F_OK, 0) != 0 && errno == ENOENT) {
    const Place place = placeFind(directory, path);
    if (place.kind != placeNone) {
      *outcome = placeOpen(&place, flags);
      return true;
    }
  }
  errno = saved;
  return false;
}

// What the next definition answered, or the camera if it found nothing.
static int opened(int descriptor, int directory, const char* path, int flags) {
  if (!realReady()) return descriptor;
  if (descriptor < 0) return errno == ENOENT ? openCamera(directory, path, flags) : -1;
  // A number that the kernel hands out again was closed behind our back.
  handleClosed(descriptor);
  folderClosed(descriptor);
  return descriptor;
}

// The body of a call that opens, the next definition being called as its last arguments say.
#define OPEN(directory, path, flags, mode, name, ...)                           \
  int outcome;                                                                  \
  if (createsCamera(directory, path, flags, &outcome)) return outcome;          \
  outcome = CHAIN(name, realOpenat(directory, path, flags, mode), __VA_ARGS__); \
  return opened(outcome, directory, path, flags);

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

LENSLARK_EXPORT int open(const char* path, int flags, ...){
    MODE_OF(flags, flags) OPEN(AT_FDCWD, path, flags, mode, open, path, flags, mode)}

LENSLARK_EXPORT int open64(const char* path, int flags, ...){
    MODE_OF(flags, flags) OPEN(AT_FDCWD, path, flags, mode, open64, path, flags, mode)}

LENSLARK_EXPORT int openat(int directory, const char* path, int flags, ...){
    MODE_OF(flags, flags) OPEN(directory, path, flags, mode, openat, directory, path, flags, mode)}

LENSLARK_EXPORT int openat64(int directory, const char* path, int flags, ...){
    MODE_OF(flags, flags)
        OPEN(directory, path, flags, mode, openat64, directory, path, flags, mode)}

LENSLARK_EXPORT int creat(const char* path, mode_t mode){
    OPEN(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode, creat, path, mode)}

LENSLARK_EXPORT int creat64(const char* path, mode_t mode){
    OPEN(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode, creat64, path, mode)}

// The twins that fortified programs call, for flags that need no mode.
LENSLARK_EXPORT int __open_2(const char* path, int flags);
LENSLARK_EXPORT int __open_2(const char* path,
                             int flags){OPEN(AT_FDCWD, path, flags, 0, __open_2, path, flags)}

LENSLARK_EXPORT int __open64_2(const char* path, int flags);
LENSLARK_EXPORT int __open64_2(const char* path,
                               int flags){OPEN(AT_FDCWD, path, flags, 0, __open64_2, path, flags)}

LENSLARK_EXPORT int __openat_2(int directory, const char* path, int flags);
LENSLARK_EXPORT int __openat_2(int directory, const char* path, int flags){
    OPEN(directory, path, flags, 0, __openat_2, directory, path, flags)}

LENSLARK_EXPORT int __openat64_2(int directory, const char* path, int flags);
LENSLARK_EXPORT int __openat64_2(int directory, const char* path, int flags) {
  OPEN(directory, path, flags, 0, __openat64_2, directory, path, flags)
}

// What the next definition answered, or a stream on one of our files if it found nothing.
static FILE* streamed(FILE* stream, const char* path, const char* mode) {
  if (stream || errno != ENOENT || mode[0] != 'r' || !realReady()) return stream;
  const Place place = placeFind(AT_FDCWD, path);
  if (place.kind != placeFile) {
    if (place.kind != placeNone) errno = ENOENT;
    return NULL;
  }
  const int descriptor = placeOpen(&place, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return NULL;
  stream = fdopen(descriptor, "r");
  if (!stream) realClose(descriptor);
  return stream;
}

LENSLARK_EXPORT FILE* fopen(const char* restrict path, const char* restrict mode) {
  return streamed(NEXT(fopen)(path, mode), path, mode);
}

LENSLARK_EXPORT FILE* fopen64(const char* restrict path, const char* restrict mode) {
  return streamed(NEXT(fopen64)(path, mode), path, mode);
}

// The C library closes the stream even if nothing is there. So one of our files is looked for
// before: a descriptor of it and its name in `link`, else -1.
static int replacement(const char* path, const char* mode, char link[static 32]) {
  if (!path || mode[0] != 'r' || !realReady()) return -1;
  const int saved = errno;
  const bool missing = realFaccessat(AT_FDCWD, path, F_OK, 0) != 0 && errno == ENOENT;
  const Place place = missing ? placeFind(AT_FDCWD, path) : (Place){.kind = placeNone};
  errno = saved;
  const int descriptor = place.kind == placeFile ? placeOpen(&place, O_RDONLY | O_CLOEXEC) : -1;
  snprintf(link, 32, "/proc/self/fd/%d", descriptor);
  return descriptor;
}

LENSLARK_EXPORT FILE* freopen(const char* restrict path, const char* restrict mode,
                              FILE* restrict stream) {
  char link[32];
  const int ours = replacement(path, mode, link);
  FILE* reopened = NEXT(freopen)(ours < 0 ? path : link, mode, stream);
  if (ours >= 0) realClose(ours);
  return reopened;
}

LENSLARK_EXPORT FILE* freopen64(const char* restrict path, const char* restrict mode,
                                FILE* restrict stream) {
  char link[32];
  const int ours = replacement(path, mode, link);
  FILE* reopened = NEXT(freopen64)(ours < 0 ? path : link, mode, stream);
  if (ours >= 0) realClose(ours);
  return reopened;
}

LENSLARK_EXPORT int close(int descriptor) {
  handleClosed(descriptor);
  folderClosed(descriptor);
  return realClose(descriptor);
}

LENSLARK_EXPORT int close_range(unsigned first, unsigned last, int flags) {
  if (!((unsigned)flags & CLOSE_RANGE_CLOEXEC)) handleRangeClosed(first, last);
  return NEXT(close_range)(first, last, flags);
}

LENSLARK_EXPORT void closefrom(int first) {
  handleRangeClosed(first < 0 ? 0 : (unsigned)first, UINT32_MAX);
  NEXT(closefrom)(first);
}

// Of whatever stands for something of ours.
static void copied(int descriptor, int copy) {
  handleCopied(descriptor, copy);
  folderCopied(descriptor, copy);
}

LENSLARK_EXPORT int dup(int descriptor) {
  const int copy = NEXT(dup)(descriptor);
  if (copy >= 0) copied(descriptor, copy);
  return copy;
}

// Forgets a camera that is about to be replaced, unless the call will fail.
static void replacing(int descriptor, int copy) {
  if (descriptor != copy && handleIs(copy) && NEXT(fcntl)(descriptor, F_GETFD) >= 0) {
    handleClosed(copy);
  }
}

LENSLARK_EXPORT int dup2(int descriptor, int copy) {
  replacing(descriptor, copy);
  const int outcome = NEXT(dup2)(descriptor, copy);
  if (outcome >= 0) copied(descriptor, copy);
  return outcome;
}

LENSLARK_EXPORT int dup3(int descriptor, int copy, int flags) {
  replacing(descriptor, copy);
  const int outcome = NEXT(dup3)(descriptor, copy, flags);
  if (outcome >= 0) copied(descriptor, copy);
  return outcome;
}

// A camera gives no notice by signal, and its mark stays.
static bool isAboutMark(int descriptor, int command) {
  return (command == F_SETSIG || command == F_GETSIG) && handleIs(descriptor);
}

static int controlled(int outcome, int descriptor, int command) {
  Handle* handle = outcome >= 0 && command == F_GETFL ? handlePin(descriptor) : NULL;
  if (handle) {
    // The timer behind it is always open for both.
    outcome = (outcome & ~O_ACCMODE) | handle->access;
    handleUnpin(handle);
  }
  if (outcome >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC)) {
    copied(descriptor, outcome);
  }
  return outcome;
}

// Every command's argument is of a pointer's size or less.
#define ARGUMENT_OF(command)                 \
  va_list arguments;                         \
  va_start(arguments, command);              \
  void* argument = va_arg(arguments, void*); \
  va_end(arguments);

LENSLARK_EXPORT int fcntl(int descriptor, int command, ...) {
  ARGUMENT_OF(command)
  if (isAboutMark(descriptor, command)) return 0;
  return controlled(NEXT(fcntl)(descriptor, command, argument), descriptor, command);
}

LENSLARK_EXPORT int fcntl64(int descriptor, int command, ...) {
  ARGUMENT_OF(command)
  if (isAboutMark(descriptor, command)) return 0;
  return controlled(NEXT(fcntl64)(descriptor, command, argument), descriptor, command);
}

LENSLARK_EXPORT int ioctl(int descriptor, unsigned long request, ...) {
  ARGUMENT_OF(request)
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
  // The next one ends the program if the size is beyond the room, which is what it exists for.
  return size <= room && handleIs(descriptor) ? read(descriptor, into, size)
                                              : NEXT(__read_chk)(descriptor, into, size, room);
}

// Fills one part after the other, as the kernel does for a device that only reads.
static ssize_t readParts(Handle* handle, int descriptor, const struct iovec* parts, int count) {
  if (count < 0 || count > IOV_MAX) {
    errno = EINVAL;
    return -1;
  }
  ssize_t whole = 0;
  for (int i = 0; i < count; ++i) {
    struct iovec part;
    ssize_t got = -1;
    if (copyFromUser(&part, parts + i, sizeof(part))) {
      got = streamRead(handle, descriptor, part.iov_base, part.iov_len);
    }
    if (got < 0) return whole > 0 ? whole : -1;
    whole += got;
    if ((size_t)got < part.iov_len) break;
  }
  return whole;
}

LENSLARK_EXPORT ssize_t readv(int descriptor, const struct iovec* parts, int count) {
  Handle* handle = handlePin(descriptor);
  if (!handle) return NEXT(readv)(descriptor, parts, count);
  const ssize_t outcome = readParts(handle, descriptor, parts, count);
  handleUnpin(handle);
  return outcome;
}

// A camera has no place to go to.
static off_t noPlace(void) {
  errno = ESPIPE;
  return -1;
}

LENSLARK_EXPORT off_t lseek(int descriptor, off_t offset, int whence) {
  return handleIs(descriptor) ? noPlace() : NEXT(lseek)(descriptor, offset, whence);
}

LENSLARK_EXPORT off64_t lseek64(int descriptor, off64_t offset, int whence) {
  return handleIs(descriptor) ? noPlace() : NEXT(lseek64)(descriptor, offset, whence);
}

LENSLARK_EXPORT void* mmap(void* address, size_t length, int protection, int flags, int descriptor,
                           off_t offset) {
  Handle* handle = (flags & MAP_ANONYMOUS) ? NULL : handlePin(descriptor);
  if (!handle) {
    return CHAIN(mmap, realMmap(address, length, protection, flags, descriptor, offset), address,
                 length, protection, flags, descriptor, offset);
  }
  void* mapped = streamMap(handle, address, length, protection, flags, offset);
  handleUnpin(handle);
  return mapped;
}

LENSLARK_EXPORT void* mmap64(void* address, size_t length, int protection, int flags,
                             int descriptor, off_t offset) {
  if (!(flags & MAP_ANONYMOUS) && handleIs(descriptor)) {
    return mmap(address, length, protection, flags, descriptor, offset);
  }
  return CHAIN(mmap64, realMmap(address, length, protection, flags, descriptor, offset), address,
               length, protection, flags, descriptor, offset);
}

LENSLARK_EXPORT int munmap(void* address, size_t length) {
  streamUnmapped(address, length);
  return CHAIN(munmap, realMunmap(address, length), address, length);
}
