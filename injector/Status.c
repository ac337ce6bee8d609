// Status.c - the interposed calls that ask about paths: stat and its many twins, access, readlink.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "Export.h"
#include "Places.h"
#include "Real.h"
#include "UserMemory.h"

// On 64-bit machines both structures are one; the older names still exist.
_Static_assert(sizeof(struct stat) == sizeof(struct stat64), "stat64 is stat");

static int status(int directory, const char* path, struct stat* into, int flags) {
  if ((flags & AT_EMPTY_PATH) != 0 && directory >= 0 && handleIs(directory)) {
    Handle* handle = handlePin(directory);
    // The kernel checks both pointers, and says what only it knows.
    const int outcome = realFstatat(directory, path, into, flags);
    if (handle && outcome == 0) placeStatDevice(handle->device, into);
    if (handle) handleUnpin(handle);
    return outcome;
  }
  const int saved = errno;
  const int outcome = realFstatat(directory, path, into, flags);
  if (outcome == 0 || errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  // Has the kernel check the pointer before it is written to.
  if (realFstatat(AT_FDCWD, "/dev", into, 0) != 0) return -1;
  placeStat(&place, (flags & AT_SYMLINK_NOFOLLOW) == 0, into);
  errno = saved;
  return 0;
}

LENSLARK_EXPORT int fstatat(int directory, const char* restrict path, struct stat* restrict into,
                            int flags) {
  return status(directory, path, into, flags);
}

LENSLARK_EXPORT int stat(const char* restrict path, struct stat* restrict into) {
  return status(AT_FDCWD, path, into, 0);
}

LENSLARK_EXPORT int lstat(const char* restrict path, struct stat* restrict into) {
  return status(AT_FDCWD, path, into, AT_SYMLINK_NOFOLLOW);
}

LENSLARK_EXPORT int fstat(int descriptor, struct stat* into) {
  // An empty path with AT_FDCWD would mean the current directory.
  if (descriptor < 0) {
    errno = EBADF;
    return -1;
  }
  return status(descriptor, "", into, AT_EMPTY_PATH);
}

LENSLARK_EXPORT int fstatat64(int directory, const char* restrict path,
                              struct stat64* restrict into, int flags) {
  return status(directory, path, (struct stat*)into, flags);
}

LENSLARK_EXPORT int stat64(const char* restrict path, struct stat64* restrict into) {
  return stat(path, (struct stat*)into);
}

LENSLARK_EXPORT int lstat64(const char* restrict path, struct stat64* restrict into) {
  return lstat(path, (struct stat*)into);
}

LENSLARK_EXPORT int fstat64(int descriptor, struct stat64* into) {
  return fstat(descriptor, (struct stat*)into);
}

// What programs built against older C libraries call; the first argument is the structure's
// version, of which 64-bit machines have one.
#define OLDER(declaration, call) \
  LENSLARK_EXPORT declaration;   \
  LENSLARK_EXPORT declaration {  \
    (void)version;               \
    return call;                 \
  }
OLDER(int __xstat(int version, const char* path, struct stat* into), stat(path, into))
OLDER(int __xstat64(int version, const char* path, struct stat64* into), stat64(path, into))
OLDER(int __lxstat(int version, const char* path, struct stat* into), lstat(path, into))
OLDER(int __lxstat64(int version, const char* path, struct stat64* into), lstat64(path, into))
OLDER(int __fxstat(int version, int descriptor, struct stat* into), fstat(descriptor, into))
OLDER(int __fxstat64(int version, int descriptor, struct stat64* into), fstat64(descriptor, into))
OLDER(int __fxstatat(int version, int directory, const char* path, struct stat* into, int flags),
      fstatat(directory, path, into, flags))
OLDER(int __fxstatat64(int version, int directory, const char* path, struct stat64* into,
                       int flags),
      fstatat64(directory, path, into, flags))

static void toStatx(const struct stat* from, struct statx* into) {
  into->stx_mask = STATX_BASIC_STATS;
  into->stx_mode = (uint16_t)from->st_mode;
  into->stx_nlink = (uint32_t)from->st_nlink;
  into->stx_uid = from->st_uid;
  into->stx_gid = from->st_gid;
  into->stx_ino = from->st_ino;
  into->stx_size = (uint64_t)from->st_size;
  into->stx_rdev_major = major(from->st_rdev);
  into->stx_rdev_minor = minor(from->st_rdev);
}

LENSLARK_EXPORT int statx(int directory, const char* restrict path, int flags, unsigned mask,
                          struct statx* restrict into) {
  if (!real.statx) realResolve();
  const int saved = errno;
  const int outcome = real.statx(directory, path, flags, mask, into);
  struct stat status;
  if (outcome == 0) {
    Handle* handle = (flags & AT_EMPTY_PATH) != 0 && directory >= 0 ? handlePin(directory) : NULL;
    if (handle) {
      placeStatDevice(handle->device, &status);
      toStatx(&status, into);
      handleUnpin(handle);
    }
    return 0;
  }
  if (errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  if (real.statx(AT_FDCWD, "/dev", 0, mask, into) != 0) return -1;
  placeStat(&place, (flags & AT_SYMLINK_NOFOLLOW) == 0, &status);
  toStatx(&status, into);
  errno = saved;
  return 0;
}

static int mayAccess(int directory, const char* path, int mode, int flags) {
  const int saved = errno;
  const int outcome = realFaccessat(directory, path, mode, flags);
  if (outcome == 0 || errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  if (placeAccess(&place, mode) != 0) return -1;
  errno = saved;
  return 0;
}

LENSLARK_EXPORT int access(const char* path, int mode) {
  return mayAccess(AT_FDCWD, path, mode, 0);
}

LENSLARK_EXPORT int faccessat(int directory, const char* path, int mode, int flags) {
  return mayAccess(directory, path, mode, flags);
}

LENSLARK_EXPORT int euidaccess(const char* path, int mode) {
  return mayAccess(AT_FDCWD, path, mode, AT_EACCESS);
}

LENSLARK_EXPORT int eaccess(const char* path, int mode) {
  return mayAccess(AT_FDCWD, path, mode, AT_EACCESS);
}

static ssize_t linkTarget(int directory, const char* path, char* into, size_t size) {
  const ssize_t length = realReadlinkat(directory, path, into, size);
  if (length >= 0 || errno != ENOENT || !realReady()) return length;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  if (!place.isLink) {
    errno = EINVAL;
    return -1;
  }
  char name[PATH_MAX];
  placeRealName(&place, name);
  const size_t whole = strlen(name);
  const size_t part = whole < size ? whole : size;
  return copyToUser(into, name, part) ? (ssize_t)part : -1;
}

LENSLARK_EXPORT ssize_t readlink(const char* restrict path, char* restrict into, size_t size) {
  return linkTarget(AT_FDCWD, path, into, size);
}

LENSLARK_EXPORT ssize_t readlinkat(int directory, const char* restrict path, char* restrict into,
                                   size_t size) {
  return linkTarget(directory, path, into, size);
}

LENSLARK_EXPORT ssize_t __readlink_chk(const char* path, char* into, size_t size, size_t room);
LENSLARK_EXPORT ssize_t __readlink_chk(const char* path, char* into, size_t size, size_t room) {
  if (size > room) __builtin_trap();
  return linkTarget(AT_FDCWD, path, into, size);
}

LENSLARK_EXPORT ssize_t __readlinkat_chk(int directory, const char* path, char* into, size_t size,
                                         size_t room);
LENSLARK_EXPORT ssize_t __readlinkat_chk(int directory, const char* path, char* into, size_t size,
                                         size_t room) {
  if (size > room) __builtin_trap();
  return linkTarget(directory, path, into, size);
}

LENSLARK_EXPORT char* realpath(const char* restrict path, char* restrict into) {
  if (!real.realpath) realResolve();
  char* name = real.realpath(path, into);
  if (name || errno != ENOENT || !realReady()) return name;
  const Place place = placeFind(AT_FDCWD, path);
  if (place.kind == placeNone) {
    errno = ENOENT;
    return NULL;
  }
  if (!into) into = malloc(PATH_MAX);
  if (into) placeRealName(&place, into);
  return into;
}

LENSLARK_EXPORT char* __realpath_chk(const char* path, char* into, size_t room);
LENSLARK_EXPORT char* __realpath_chk(const char* path, char* into, size_t room) {
  if (room < PATH_MAX) __builtin_trap();
  return realpath(path, into);
}

LENSLARK_EXPORT char* canonicalize_file_name(const char* path) { return realpath(path, NULL); }

// Listing programs ask for access lists: there are none.
static ssize_t attribute(ssize_t outcome, const char* path) {
  if (outcome >= 0 || errno != ENOENT || !realReady()) return outcome;
  errno = placeFind(AT_FDCWD, path).kind == placeNone ? ENOENT : ENODATA;
  return -1;
}

LENSLARK_EXPORT ssize_t getxattr(const char* path, const char* name, void* into, size_t size) {
  if (!real.getxattr) realResolve();
  return attribute(real.getxattr(path, name, into, size), path);
}

LENSLARK_EXPORT ssize_t lgetxattr(const char* path, const char* name, void* into, size_t size) {
  if (!real.lgetxattr) realResolve();
  return attribute(real.lgetxattr(path, name, into, size), path);
}
