// paths.c - makes links at random, asks for paths at random, and prints what each is: `paths SEED`.
// The cameras must be where a kernel's own would be.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { linkCount = 10, pathCount = 1500, longest = 256 };

static unsigned seed;

static unsigned upTo(unsigned count) { return (unsigned)rand_r(&seed) % count; }

static void makePath(char path[static longest]) {
  static const char* const starts[] = {"", "", "/", "/dev/"};
  static const char* const names[] = {
      "dev", "video0", "video1", ".",  "..", "a",      "b",    "l0", "l1", "l2", "l3",      "l4",
      "l5",  "l6",     "l7",     "l8", "l9", "video9", "null", "81", "",   "x",  "video0x", "shm"};
  strcpy(path, starts[upTo(sizeof(starts) / sizeof(starts[0]))]);
  for (unsigned left = 1 + upTo(5); left > 0; --left) {
    strcat(path, names[upTo(sizeof(names) / sizeof(names[0]))]);
    if (left > 1 || upTo(5) == 0) strcat(path, "/");
  }
  if (!*path) strcpy(path, "l0");
}

// Below a link to what is missing we say so where a kernel may say that it is no directory.
static const char* errorOf(int error) {
  return error == ENOENT || error == ENOTDIR ? "missing" : strerror(error);
}

static void tellStatus(int outcome, const struct stat* status) {
  if (outcome == 0) {
    printf(" %o", (unsigned)status->st_mode & S_IFMT);
  } else {
    printf(" (%s)", errorOf(errno));
  }
}

static void tell(int directory, const char* path) {
  char name[PATH_MAX];
  struct stat status;
  const int descriptor = openat(directory, path, O_RDONLY | (upTo(4) ? 0 : O_NOFOLLOW));
  printf("%s:", path);
  tellStatus(descriptor < 0 ? -1 : fstat(descriptor, &status), &status);
  if (descriptor >= 0) close(descriptor);
  tellStatus(fstatat(directory, path, &status, 0), &status);
  tellStatus(fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW), &status);
  printf(" %s", faccessat(directory, path, F_OK, 0) == 0 ? "there" : errorOf(errno));
  const ssize_t length = readlinkat(directory, path, name, sizeof(name));
  printf(" %.*s", length < 0 ? 0 : (int)length, name);
  printf(" %s\n", realpath(path, name) ? name : errorOf(errno));
}

int main(int count, char** arguments) {
  seed = count > 1 ? (unsigned)atoi(arguments[1]) : 0;
  if (mkdir("a", 0700) != 0 || mkdir("a/b", 0700) != 0) return 1;
  char path[longest];
  for (int i = 0; i < linkCount; ++i) {
    static const char* const folders[] = {"", "a/", "a/b/"};
    char name[32];
    snprintf(name, sizeof(name), "%sl%d", folders[i % 3], i);
    makePath(path);
    if (symlink(path, name) != 0) return 1;
  }
  const int bases[] = {AT_FDCWD, open("a", O_RDONLY), open("/dev", O_RDONLY)};
  for (int i = 0; i < pathCount; ++i) {
    makePath(path);
    tell(bases[upTo(3)], path);
  }
  return 0;
}
