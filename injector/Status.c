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
#include "Folders.h"
#include "Places.h"
#include "Real.h"
#include "UserMemory.h"

// On 64-bit machines both structures are one; the older names still exist.
_Static_assert(sizeof(struct stat) == sizeof(struct stat64), "stat64 is stat");

// Puts right what was told of something of ours through its descriptor alone. Later kernels take a
// path of NULL for an empty one; the headers promise the compiler that there is none.
static bool corrected(int directory, const char* path, int flags, struct stat* into) {
  const char* const volatile given = path;
  const char* const text = given;
  if (!(flags & AT_EMPTY_PATH) || (text && *text != '\0')) return false;
  Handle* handle = handlePin(directory);
  Place folder;
  if (handle) {
    placeStatDevice(handle->device, into);
    handleUnpin(handle);
    return true;
  }
  if (!folderFind(directory, &folder)) return false;
  placeStat(&folder, false, into);
  return true;
}

// What the next definition answered about `path`, put right if it is ours or found nothing.
static int answered(int outcome, int saved, int directory, const char* path, struct stat* into,
                    int flags) {
  if (outcome == 0) {
    corrected(directory, path, flags, into);
    return 0;
  }
  if (errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  // Has the kernel check the pointer before it is written to.
  if (realFstatat(AT_FDCWD, "/dev", into, 0) != 0) return -1;
  placeStat(&place, (flags & AT_SYMLINK_NOFOLLOW) == 0, into);
  errno = saved;
  return 0;
}

// The body of a call that asks, the next definition being called as its last arguments say.
#define ASK(directory, path, into, flags, name, ...)                                        \
  const int saved = errno;                                                                  \
  struct stat* const plain = (struct stat*)(into);                                          \
  const int outcome = CHAIN(name, realFstatat(directory, path, plain, flags), __VA_ARGS__); \
  return answered(outcome, saved, directory, path, plain, flags);

LENSLARK_EXPORT int stat(const char* restrict path,
                         struct stat* restrict into){ASK(AT_FDCWD, path, into, 0, stat, path, into)}

LENSLARK_EXPORT int lstat(const char* restrict path, struct stat* restrict into){
    ASK(AT_FDCWD, path, into, AT_SYMLINK_NOFOLLOW, lstat, path, into)}

LENSLARK_EXPORT int fstat(int descriptor, struct stat* into){
    ASK(descriptor, "", into, AT_EMPTY_PATH, fstat, descriptor, into)}

LENSLARK_EXPORT
    int fstatat(int directory, const char* restrict path, struct stat* restrict into,
                int flags){ASK(directory, path, into, flags, fstatat, directory, path, into, flags)}

LENSLARK_EXPORT int stat64(const char* restrict path, struct stat64* restrict into){
    ASK(AT_FDCWD, path, into, 0, stat64, path, into)}

LENSLARK_EXPORT int lstat64(const char* restrict path, struct stat64* restrict into){
    ASK(AT_FDCWD, path, into, AT_SYMLINK_NOFOLLOW, lstat64, path, into)}

LENSLARK_EXPORT int fstat64(int descriptor, struct stat64* into){
    ASK(descriptor, "", into, AT_EMPTY_PATH, fstat64, descriptor, into)}

LENSLARK_EXPORT int fstatat64(int directory, const char* restrict path,
                              struct stat64* restrict into, int flags){
    ASK(directory, path, into, flags, fstatat64, directory, path, into, flags)}
// What programs built against older C libraries call; the first argument is the structure's
// version, of which 64-bit machines have one.
#define OLDER(declaration, directory, path, flags, name, ...) \
  LENSLARK_EXPORT declaration;                                \
  LENSLARK_EXPORT declaration { ASK(directory, path, into, flags, name, version, __VA_ARGS__) }
OLDER(int __xstat(int version, const char* path, struct stat* into), AT_FDCWD, path, 0, __xstat,
      path, into) OLDER(int __xstat64(int version, const char* path, struct stat64* into), AT_FDCWD,
                        path, 0, __xstat64, path, into)
    OLDER(int __lxstat(int version, const char* path, struct stat* into), AT_FDCWD, path,
          AT_SYMLINK_NOFOLLOW, __lxstat, path, into)
        OLDER(int __lxstat64(int version, const char* path, struct stat64* into), AT_FDCWD, path,
              AT_SYMLINK_NOFOLLOW, __lxstat64, path, into)
            OLDER(int __fxstat(int version, int descriptor, struct stat* into), descriptor, "",
                  AT_EMPTY_PATH, __fxstat, descriptor, into)
                OLDER(int __fxstat64(int version, int descriptor, struct stat64* into), descriptor,
                      "", AT_EMPTY_PATH, __fxstat64, descriptor, into)
                    OLDER(int __fxstatat(int version, int directory, const char* path,
                                         struct stat* into, int flags),
                          directory, path, flags, __fxstatat, directory, path, into, flags)
                        OLDER(int __fxstatat64(int version, int directory, const char* path,
                                               struct stat64* into, int flags),
                              directory, path, flags, __fxstatat64, directory, path, into, flags)

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
  const int saved = errno;
  const int outcome = NEXT(statx)(directory, path, flags, mask, into);
  struct stat status;
  if (outcome == 0) {
    if (corrected(directory, path, flags, &status)) toStatx(&status, into);
    return 0;
  }
  if (errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  if (NEXT(statx)(AT_FDCWD, "/dev", 0, mask, into) != 0) return -1;
  placeStat(&place, (flags & AT_SYMLINK_NOFOLLOW) == 0, &status);
  toStatx(&status, into);
  errno = saved;
  return 0;
}

// What the next definition answered, or our own answer if it found nothing.
static int allowed(int outcome, int saved, int directory, const char* path, int mode) {
  if (outcome == 0 || errno != ENOENT || !realReady()) return outcome;
  const Place place = placeFind(directory, path);
  if (place.kind == placeNone) return -1;
  if (placeAccess(&place, mode) != 0) return -1;
  errno = saved;
  return 0;
}

LENSLARK_EXPORT int access(const char* path, int mode) {
  const int saved = errno;
  const int outcome = CHAIN(access, realFaccessat(AT_FDCWD, path, mode, 0), path, mode);
  return allowed(outcome, saved, AT_FDCWD, path, mode);
}

LENSLARK_EXPORT int faccessat(int directory, const char* path, int mode, int flags) {
  const int saved = errno;
  return allowed(realFaccessat(directory, path, mode, flags), saved, directory, path, mode);
}

LENSLARK_EXPORT int euidaccess(const char* path, int mode) {
  const int saved = errno;
  return allowed(NEXT(euidaccess)(path, mode), saved, AT_FDCWD, path, mode);
}

LENSLARK_EXPORT int eaccess(const char* path, int mode) {
  const int saved = errno;
  return allowed(NEXT(eaccess)(path, mode), saved, AT_FDCWD, path, mode);
}

// What the next definition answered, or our own answer if it found nothing.
static ssize_t followed(ssize_t length, int directory, const char* path, char* into, size_t size) {
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
  const ssize_t length =
      CHAIN(readlink, realReadlinkat(AT_FDCWD, path, into, size), path, into, size);
  return followed(length, AT_FDCWD, path, into, size);
}

LENSLARK_EXPORT ssize_t readlinkat(int directory, const char* restrict path, char* restrict into,
                                   size_t size) {
  return followed(realReadlinkat(directory, path, into, size), directory, path, into, size);
}

// The twins that fortified programs call. The next ones end the program if the size is beyond the
// room.
LENSLARK_EXPORT ssize_t __readlink_chk(const char* path, char* into, size_t size, size_t room);
LENSLARK_EXPORT ssize_t __readlink_chk(const char* path, char* into, size_t size, size_t room) {
  return followed(NEXT(__readlink_chk)(path, into, size, room), AT_FDCWD, path, into, size);
}

LENSLARK_EXPORT ssize_t __readlinkat_chk(int directory, const char* path, char* into, size_t size,
                                         size_t room);
LENSLARK_EXPORT ssize_t __readlinkat_chk(int directory, const char* path, char* into, size_t size,
                                         size_t room) {
  return followed(NEXT(__readlinkat_chk)(directory, path, into, size, room), directory, path, into,
                  size);
}

// What the next definition answered, or our own answer if it found nothing.
static char* named(char* name, const char* path, char* into) {
  if (name || errno != ENOENT || !realReady()) return name;
  const Place place = placeFind(AT_FDCWD, path);
  if (place.kind == placeNone) return NULL;
  if (!into) into = malloc(PATH_MAX);
  if (into) placeRealName(&place, into);
  return into;
}

LENSLARK_EXPORT char* realpath(const char* restrict path, char* restrict into) {
  return named(NEXT(realpath)(path, into), path, into);
}

LENSLARK_EXPORT char* __realpath_chk(const char* path, char* into, size_t room);
LENSLARK_EXPORT char* __realpath_chk(const char* path, char* into, size_t room) {
  return named(NEXT(__realpath_chk)(path, into, room), path, into);
}

LENSLARK_EXPORT char* canonicalize_file_name(const char* path) {
  return named(NEXT(canonicalize_file_name)(path), path, NULL);
}

// Listing programs ask for access lists: there are none.
static ssize_t attribute(ssize_t outcome, const char* path) {
  if (outcome >= 0 || errno != ENOENT || !realReady()) return outcome;
  if (placeFind(AT_FDCWD, path).kind != placeNone) errno = ENODATA;
  return -1;
}

LENSLARK_EXPORT ssize_t getxattr(const char* path, const char* name, void* into, size_t size) {
  return attribute(NEXT(getxattr)(path, name, into, size), path);
}

LENSLARK_EXPORT ssize_t lgetxattr(const char* path, const char* name, void* into, size_t size) {
  return attribute(NEXT(lgetxattr)(path, name, into, size), path);
}
