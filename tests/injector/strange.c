// strange.c - makes the calls that are interposed with arguments that few programs pass, none of
// which means a camera, and prints what each answers: it must be the same with the library and
// without.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <limits.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

enum { directory = 50, file = 51, nothing = 52, farAway = 1000000 };

static char tooLong[2 * PATH_MAX];
static char room[PATH_MAX];
static struct stat status;
static struct stat64 status64;
static struct statx more;
static void* volatile bad = (void*)8;
static volatile int fewerThanNone = -1;

static void tell(const char* what, long outcome) {
  printf(" %s %ld %d", what, outcome, outcome < 0 ? errno : 0);
  errno = 0;
}

static void tellOpened(const char* what, int descriptor) {
  tell(what, descriptor);
  if (descriptor >= 0) close(descriptor);
}

static long closed(FILE* stream) { return stream ? fclose(stream) : -1; }

// The calls that leave their path to the kernel.
static void tellOfPath(const char* path, int base) {
  tellOpened("open", open(path, O_RDONLY));
  tellOpened("open64", open64(path, O_RDONLY | O_DIRECTORY));
  tellOpened("openat", openat(base, path, O_RDONLY));
  tellOpened("openat64", openat64(base, path, O_PATH));
  tell("stat", stat(path, &status));
  tell("lstat", lstat(path, &status));
  tell("fstatat", fstatat(base, path, &status, 0));
  tell("of an empty path", fstatat(base, path, &status, AT_EMPTY_PATH));
  tell("into nowhere", fstatat64(base, path, bad, AT_EMPTY_PATH));
  tell("stat64", stat64(path, &status64));
  tell("statx", statx(base, path, AT_EMPTY_PATH, STATX_TYPE, &more));
  tell("into nowhere", statx(base, path, 0, STATX_TYPE, bad));
  tell("access", access(path, R_OK));
  tell("faccessat", faccessat(base, path, R_OK, AT_EACCESS));
  tell("of no such mode", faccessat(base, path, 77, 0));
  tell("readlink", readlink(path, room, sizeof(room)));
  tell("readlinkat", readlinkat(base, path, bad, sizeof(room)));
  tell("getxattr", getxattr(path, "user.none", room, sizeof(room)));
  tell("lgetxattr", lgetxattr(path, "user.none", room, sizeof(room)));
  tell("fopen", closed(fopen(path, "r")));
  tell("fopen64", closed(fopen64(path, "r+")));
}

// Those of which the C library reads the path itself.
static void tellOfText(const char* path, int base) {
  tell("realpath", realpath(path, room) ? 0 : -1);
  DIR* stream = opendir(path);
  tell("opendir", stream ? closedir(stream) : -1);
  glob_t found = {0};
  tell("glob", glob(path, 0, NULL, &found));
  globfree(&found);
  // What lists /dev lists the cameras.
  struct dirent** list;
  const bool lists = stream || strcmp(path, ".") == 0;
  if (!lists) tell("scandirat", scandirat(base, path, &list, NULL, NULL));
}

static void tellOfDescriptor(int descriptor) {
  tell("fstat", fstat(descriptor, &status));
  tell("into nowhere", fstat64(descriptor, bad));
  tellOpened("dup", dup(descriptor));
  tellOpened("dup2", dup2(descriptor, 60));
  tell("to none", dup2(descriptor, -1));
  tell("dup3 to itself", dup3(descriptor, descriptor, 0));
  tellOpened("fcntl", fcntl(descriptor, F_DUPFD_CLOEXEC, 70));
  tell("of a signal", fcntl(descriptor, F_SETSIG, 62));
  tell("that is kept", fcntl(descriptor, F_GETSIG));
  tell("of nothing", fcntl(descriptor, 9999, bad));
  tell("ioctl", ioctl(descriptor, _IOR('V', 0, char[104]), room));
  tell("into nowhere", ioctl(descriptor, FIONREAD, bad));
  tell("read", read(descriptor, bad, 4));
  tell("readv", readv(descriptor, bad, 1));
  tell("of no parts", readv(descriptor, bad, fewerThanNone));
  tell("lseek", lseek(descriptor, 0, SEEK_CUR));
  tell("lseek64", lseek64(descriptor, -5, SEEK_SET));
  void* mapped = mmap(NULL, 4096, PROT_READ, MAP_SHARED, descriptor, 0);
  tell("mmap", mapped == MAP_FAILED ? -1 : 0);
  tell("of nothing", mmap64(NULL, 0, PROT_READ, MAP_SHARED, descriptor, 0) == MAP_FAILED ? -1 : 0);
  tell("munmap", munmap(mapped, mapped == MAP_FAILED ? 0 : 4096));
  tell("close", close(descriptor));
  tell("again", close(descriptor));
}

static void prepare(void) {
  snprintf(tooLong, sizeof(tooLong), "/dev/video%0*d", 2 * PATH_MAX - 20, 9);
  dup2(open("/dev", O_RDONLY | O_DIRECTORY), directory);
  dup2(open("/etc/passwd", O_RDONLY), file);
  dup2(open("/", O_PATH), nothing);
}

int main(void) {
  const char* const paths[] = {
      "",
      "/",
      ".",
      "/dev/null",
      "/dev/videoX",
      "/dev/video77",
      "/dev/video77/x",
      "/dev/null/video0",
      "/dev/video99999999999999999999",
      "/dev/char/81:x",
      "/sys/class/video4linux9",
      "/sys/dev/char/81:77",
      "/sys/dev/char/81:",
      "video",
      "../video77",
      "\xff\xfevideo",
      "/etc/passwd/video1",
      "/etc/passwd/",
      "/missing/../dev/videoX",
      "/missing/../dev/video0",
      "/etc/passwd/../dev/video0",
      tooLong,
  };
  const int bases[] = {AT_FDCWD, -1, directory, file, nothing, farAway};
  const int pathCount = sizeof(paths) / sizeof(paths[0]);
  const int baseCount = sizeof(bases) / sizeof(bases[0]);
  prepare();
  const char* const volatile nowhere[] = {NULL, bad};
  for (int b = 0; b < baseCount; ++b) {
    for (int i = -2; i < pathCount; ++i) {
      printf("%d %d:", bases[b], i);
      tellOfPath(i < 0 ? nowhere[i + 2] : paths[i], bases[b]);
      if (i >= 0) tellOfText(paths[i], bases[b]);
      printf("\n");
    }
  }
  for (int b = 0; b < baseCount; ++b) {
    printf("%d:", bases[b]);
    tellOfDescriptor(bases[b]);
    printf("\n");
  }
  return 0;
}
