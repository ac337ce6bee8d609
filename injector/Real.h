// Real.h - the C library behind the interposed calls.
//
// Threads: any. The table is filled by the constructor; before that the functions below go to the
// kernel directly, so that an interposed call works however early it comes.
// Owns: nothing.
#pragma once

#include <dirent.h>
#include <glob.h>
#include <stdbool.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

// Result, name and arguments of each interposed call that goes on to the next definition of its own
// name, so that another preloaded library or a sanitizer that interposes just that one is met.
#define REAL_CALLS(CALL)                                                                    \
  CALL(int, open, (const char*, int, ...))                                                  \
  CALL(int, open64, (const char*, int, ...))                                                \
  CALL(int, openat, (int, const char*, int, ...))                                           \
  CALL(int, openat64, (int, const char*, int, ...))                                         \
  CALL(int, __open_2, (const char*, int))                                                   \
  CALL(int, __open64_2, (const char*, int))                                                 \
  CALL(int, __openat_2, (int, const char*, int))                                            \
  CALL(int, __openat64_2, (int, const char*, int))                                          \
  CALL(int, creat, (const char*, mode_t))                                                   \
  CALL(int, creat64, (const char*, mode_t))                                                 \
  CALL(FILE*, fopen, (const char*, const char*))                                            \
  CALL(FILE*, fopen64, (const char*, const char*))                                          \
  CALL(FILE*, freopen, (const char*, const char*, FILE*))                                   \
  CALL(FILE*, freopen64, (const char*, const char*, FILE*))                                 \
  CALL(int, close, (int))                                                                   \
  CALL(int, close_range, (unsigned, unsigned, int))                                         \
  CALL(void, closefrom, (int))                                                              \
  CALL(int, dup, (int))                                                                     \
  CALL(int, dup2, (int, int))                                                               \
  CALL(int, dup3, (int, int, int))                                                          \
  CALL(int, fcntl, (int, int, ...))                                                         \
  CALL(int, fcntl64, (int, int, ...))                                                       \
  CALL(int, ioctl, (int, unsigned long, ...))                                               \
  CALL(ssize_t, read, (int, void*, size_t))                                                 \
  CALL(ssize_t, __read_chk, (int, void*, size_t, size_t))                                   \
  CALL(ssize_t, readv, (int, const struct iovec*, int))                                     \
  CALL(off_t, lseek, (int, off_t, int))                                                     \
  CALL(off64_t, lseek64, (int, off64_t, int))                                               \
  CALL(void*, mmap, (void*, size_t, int, int, int, off_t))                                  \
  CALL(void*, mmap64, (void*, size_t, int, int, int, off_t))                                \
  CALL(int, munmap, (void*, size_t))                                                        \
  CALL(int, stat, (const char*, struct stat*))                                              \
  CALL(int, lstat, (const char*, struct stat*))                                             \
  CALL(int, fstat, (int, struct stat*))                                                     \
  CALL(int, fstatat, (int, const char*, struct stat*, int))                                 \
  CALL(int, stat64, (const char*, struct stat64*))                                          \
  CALL(int, lstat64, (const char*, struct stat64*))                                         \
  CALL(int, fstat64, (int, struct stat64*))                                                 \
  CALL(int, fstatat64, (int, const char*, struct stat64*, int))                             \
  CALL(int, __xstat, (int, const char*, struct stat*))                                      \
  CALL(int, __lxstat, (int, const char*, struct stat*))                                     \
  CALL(int, __fxstat, (int, int, struct stat*))                                             \
  CALL(int, __fxstatat, (int, int, const char*, struct stat*, int))                         \
  CALL(int, __xstat64, (int, const char*, struct stat64*))                                  \
  CALL(int, __lxstat64, (int, const char*, struct stat64*))                                 \
  CALL(int, __fxstat64, (int, int, struct stat64*))                                         \
  CALL(int, __fxstatat64, (int, int, const char*, struct stat64*, int))                     \
  CALL(int, statx, (int, const char*, int, unsigned, struct statx*))                        \
  CALL(int, access, (const char*, int))                                                     \
  CALL(int, faccessat, (int, const char*, int, int))                                        \
  CALL(int, euidaccess, (const char*, int))                                                 \
  CALL(int, eaccess, (const char*, int))                                                    \
  CALL(ssize_t, readlink, (const char*, char*, size_t))                                     \
  CALL(ssize_t, readlinkat, (int, const char*, char*, size_t))                              \
  CALL(ssize_t, __readlink_chk, (const char*, char*, size_t, size_t))                       \
  CALL(ssize_t, __readlinkat_chk, (int, const char*, char*, size_t, size_t))                \
  CALL(char*, realpath, (const char*, char*))                                               \
  CALL(char*, __realpath_chk, (const char*, char*, size_t))                                 \
  CALL(char*, canonicalize_file_name, (const char*))                                        \
  CALL(ssize_t, getxattr, (const char*, const char*, void*, size_t))                        \
  CALL(ssize_t, lgetxattr, (const char*, const char*, void*, size_t))                       \
  CALL(DIR*, opendir, (const char*))                                                        \
  CALL(DIR*, fdopendir, (int))                                                              \
  CALL(struct dirent*, readdir, (DIR*))                                                     \
  CALL(struct dirent64*, readdir64, (DIR*))                                                 \
  CALL(int, readdir_r, (DIR*, struct dirent*, struct dirent**))                             \
  CALL(int, readdir64_r, (DIR*, struct dirent64*, struct dirent64**))                       \
  CALL(int, closedir, (DIR*))                                                               \
  CALL(void, rewinddir, (DIR*))                                                             \
  CALL(long, telldir, (DIR*))                                                               \
  CALL(void, seekdir, (DIR*, long))                                                         \
  CALL(int, scandir, (const char*, struct dirent***, RealFilter, RealOrder))                \
  CALL(int, scandir64, (const char*, struct dirent64***, RealFilter64, RealOrder64))        \
  CALL(int, scandirat, (int, const char*, struct dirent***, RealFilter, RealOrder))         \
  CALL(int, scandirat64, (int, const char*, struct dirent64***, RealFilter64, RealOrder64)) \
  CALL(int, glob, (const char*, int, int (*)(const char*, int), glob_t*))                   \
  CALL(int, glob64, (const char*, int, int (*)(const char*, int), glob64_t*))               \
  CALL(void*, dlopen, (const char*, int))

typedef int (*RealFilter)(const struct dirent*);
typedef int (*RealOrder)(const struct dirent**, const struct dirent**);
typedef int (*RealFilter64)(const struct dirent64*);
typedef int (*RealOrder64)(const struct dirent64**, const struct dirent64**);

typedef struct RealCalls {
// A declaration cannot stand in parentheses.
// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define MEMBER(result, name, arguments) result(*name) arguments;
  REAL_CALLS(MEMBER)
#undef MEMBER
} RealCalls;

extern RealCalls real;

/// The next definition of a call, which has to be found now if the constructor has yet to run.
#define NEXT(name) (real.name ? (void)0 : realResolve(), real.name)

/// Calls the next definition, or before the constructor does what `early` says.
#define CHAIN(name, early, ...) (real.name ? real.name(__VA_ARGS__) : (early))

/// Fills `real`.
void realResolve(void);

/// Called by the constructor when everything is prepared.
void realStart(void);

/// True once the constructor ran: before that every interposed call only passes through.
bool realReady(void);

// The calls that are needed before the constructor too.
int realOpenat(int directory, const char* path, int flags, mode_t mode);
int realClose(int descriptor);
int realIoctl(int descriptor, unsigned long request, void* argument);
ssize_t realRead(int descriptor, void* into, size_t size);
int realFstatat(int directory, const char* path, struct stat* into, int flags);
int realFaccessat(int directory, const char* path, int mode, int flags);
ssize_t realReadlinkat(int directory, const char* path, char* into, size_t size);

// Always the kernel's own. This library maps memory for itself under its locks, and a next
// definition that knows cameras too may come back here.
void* realMmap(void* address, size_t size, int protection, int flags, int descriptor, off_t offset);
int realMunmap(void* address, size_t size);
