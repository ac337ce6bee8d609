/*
 * Preloaded into the program: lets one call of the operating system fail.
 *
 *   LENSLARK_FAULT=CALL:N:ERRNO   the N-th call (from 1) of CALL fails with that error number.
 *                                 CALL: open write fsync rename ftruncate fallocate mmap flock
 *   LENSLARK_FAULT_BELOW=PATH     only calls on files below this directory count
 *   LENSLARK_FAULT_REPORT=PATH    gets a line when the call came: CALL and the file
 *
 * Only in the program of the name "lenslark", not in those that it runs. Each CALL stands for its
 * relatives too: write for pwrite, open for openat, fsync for fdatasync, fallocate for
 * posix_fallocate, flock for fcntl's locks.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

static char call[32];
static int wantedNumber;
static int wantedError;
static char below[PATH_MAX];
static const char* report;
static atomic_int seen;

__attribute__((constructor)) static void configure(void) {
  const char* fault = getenv("LENSLARK_FAULT");
  const char* folder = getenv("LENSLARK_FAULT_BELOW");
  report = getenv("LENSLARK_FAULT_REPORT");
  if (fault == NULL || strcmp(program_invocation_short_name, "lenslark") != 0) return;
  if (sscanf(fault, "%31[a-z]:%d:%d", call, &wantedNumber, &wantedError) != 3) abort();
  if (folder != NULL) snprintf(below, sizeof(below), "%s", folder);
}

static void* next(const char* name) { return dlsym(RTLD_NEXT, name); }

static void tell(const char* path) {
  if (report == NULL) return;
  char line[PATH_MAX + 64];
  const int length = snprintf(line, sizeof(line), "%s %s\n", call, path);
  const long file =
      syscall(SYS_openat, AT_FDCWD, report, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (file < 0) return;
  syscall(SYS_write, file, line, (size_t)length);
  syscall(SYS_close, file);
}

/* Whether this call of `name` on `path` is the one that fails; errno is set then. */
static bool failsOn(const char* name, const char* path) {
  if (wantedNumber == 0 || strcmp(name, call) != 0) return false;
  if (strncmp(path, below, strlen(below)) != 0) return false;
  if (atomic_fetch_add(&seen, 1) + 1 != wantedNumber) return false;
  tell(path);
  errno = wantedError;
  return true;
}

static bool fails(const char* name, int descriptor) {
  if (wantedNumber == 0 || strcmp(name, call) != 0) return false;
  char link[64];
  char path[PATH_MAX];
  snprintf(link, sizeof(link), "/proc/self/fd/%d", descriptor);
  const ssize_t length = readlink(link, path, sizeof(path) - 1);
  if (length < 0) return false;
  path[length] = '\0';
  return failsOn(name, path);
}

/* The mode is there only when a file may be made. */
static mode_t modeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

#define OPEN(NAME)                                    \
  int NAME(const char* path, int flags, ...) {        \
    va_list arguments;                                \
    va_start(arguments, flags);                       \
    const mode_t mode = modeOf(flags, arguments);     \
    va_end(arguments);                                \
    if (failsOn("open", path)) return -1;             \
    int (*real)(const char*, int, ...) = next(#NAME); \
    return real(path, flags, mode);                   \
  }
OPEN(open)
OPEN(open64)

#define OPENAT(NAME)                                       \
  int NAME(int folder, const char* path, int flags, ...) { \
    va_list arguments;                                     \
    va_start(arguments, flags);                            \
    const mode_t mode = modeOf(flags, arguments);          \
    va_end(arguments);                                     \
    if (failsOn("open", path)) return -1;                  \
    int (*real)(int, const char*, int, ...) = next(#NAME); \
    return real(folder, path, flags, mode);                \
  }
OPENAT(openat)
OPENAT(openat64)

#define REPLACE(RESULT, NAME, PARAMETERS, CONDITION, FAILURE, ARGUMENTS) \
  RESULT NAME PARAMETERS {                                               \
    if (CONDITION) return FAILURE;                                       \
    __typeof__(NAME)* real = next(#NAME);                                \
    return real ARGUMENTS;                                               \
  }
REPLACE(ssize_t, write, (int fd, const void* bytes, size_t size), fails("write", fd), -1,
        (fd, bytes, size))
REPLACE(ssize_t, pwrite, (int fd, const void* bytes, size_t size, off_t at), fails("write", fd), -1,
        (fd, bytes, size, at))
REPLACE(ssize_t, pwrite64, (int fd, const void* bytes, size_t size, off64_t at), fails("write", fd),
        -1, (fd, bytes, size, at))
REPLACE(int, fsync, (int fd), fails("fsync", fd), -1, (fd))
REPLACE(int, fdatasync, (int fd), fails("fsync", fd), -1, (fd))
REPLACE(int, rename, (const char* from, const char* to), failsOn("rename", to), -1, (from, to))
REPLACE(int, renameat, (int a, const char* from, int b, const char* to), failsOn("rename", to), -1,
        (a, from, b, to))
REPLACE(int, ftruncate, (int fd, off_t size), fails("ftruncate", fd), -1, (fd, size))
REPLACE(int, ftruncate64, (int fd, off64_t size), fails("ftruncate", fd), -1, (fd, size))
REPLACE(int, fallocate, (int fd, int mode, off_t at, off_t size), fails("fallocate", fd), -1,
        (fd, mode, at, size))
REPLACE(int, fallocate64, (int fd, int mode, off64_t at, off64_t size), fails("fallocate", fd), -1,
        (fd, mode, at, size))
REPLACE(int, posix_fallocate, (int fd, off_t at, off_t size), fails("fallocate", fd), errno,
        (fd, at, size))
REPLACE(void*, mmap, (void* where, size_t size, int protection, int flags, int fd, off_t at),
        fd >= 0 && fails("mmap", fd), MAP_FAILED, (where, size, protection, flags, fd, at))
REPLACE(void*, mmap64, (void* where, size_t size, int protection, int flags, int fd, off64_t at),
        fd >= 0 && fails("mmap", fd), MAP_FAILED, (where, size, protection, flags, fd, at))
REPLACE(int, flock, (int fd, int operation), fails("flock", fd), -1, (fd, operation))

int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const bool locks = command == F_SETLK || command == F_SETLKW || command == F_OFD_SETLK ||
                     command == F_OFD_SETLKW;
  if (locks && fails("flock", fd)) return -1;
  int (*real)(int, int, ...) = next("fcntl");
  return real(fd, command, argument);
}
