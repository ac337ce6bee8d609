#include "Paths.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include "Places.h"
#include "Real.h"

enum { maxLinks = 40 };  // As many as the kernel follows.

typedef struct Walk {
  char* text;       // What was walked.
  size_t length;    // Of that.
  size_t existing;  // How much of it exists.
  int links;
  char rest[PATH_MAX];
} Walk;

// Begins where a relative path does. The kernel's own names of directories have no links.
static bool begin(Walk* walk, int directory) {
  const char* known = directory == AT_FDCWD ? NULL : directoryNameOf(directory);
  if (known) {
    walk->length = (size_t)snprintf(walk->text, PATH_MAX, "%s", known);
    return true;
  }
  char link[64];
  if (directory == AT_FDCWD) {
    snprintf(link, sizeof(link), "/proc/self/cwd");
  } else {
    snprintf(link, sizeof(link), "/proc/self/fd/%d", directory);
  }
  const ssize_t length = realReadlinkat(AT_FDCWD, link, walk->text, PATH_MAX - 1);
  if (length <= 0 || walk->text[0] != '/') return false;
  walk->length = walk->existing = length > 1 ? (size_t)length : 0;  // The root is empty text.
  walk->text[walk->length] = '\0';
  return true;
}

static void leave(Walk* walk) {
  while (walk->length > 0 && walk->text[--walk->length] != '/') {
  }
  walk->text[walk->length] = '\0';
  if (walk->existing > walk->length) walk->existing = walk->length;
}

// Puts what a link says in the place of its name. `behind` is what is left after that.
static bool follow(Walk* walk, const char* link, size_t length, const char* behind) {
  const size_t left = strlen(behind);
  if (++walk->links > maxLinks || length + left >= sizeof(walk->rest)) return false;
  memmove(walk->rest + length, behind, left + 1);
  memcpy(walk->rest, link, length);
  leave(walk);
  if (link[0] == '/') walk->length = walk->existing = 0;
  walk->text[walk->length] = '\0';
  return true;
}

// Goes on to a name. Sets `followed` if that is a link, which `rest` begins with then.
static bool enter(Walk* walk, const char* name, size_t size, bool* followed) {
  if (walk->length + size + 2 > PATH_MAX) return false;
  const bool mayExist = walk->existing == walk->length;
  walk->text[walk->length++] = '/';
  memcpy(walk->text + walk->length, name, size);
  walk->length += size;
  walk->text[walk->length] = '\0';
  if (!mayExist) return true;
  char link[PATH_MAX];
  const ssize_t length = realReadlinkat(AT_FDCWD, walk->text, link, sizeof(link));
  *followed = length > 0;
  if (*followed) return follow(walk, link, (size_t)length, name + size);
  if (errno == EINVAL) walk->existing = walk->length;  // It is no link.
  return errno == EINVAL || errno == ENOENT;
}

// What the kernel makes sure of where "." or ".." or a slash follows.
static bool isDirectory(const Walk* walk) {
  return walk->existing == walk->length || placeIsDirectory(walk->text);
}

static bool resolve(Walk* walk, Path* path) {
  for (const char* at = walk->rest; *at;) {
    path->isDirectory = path->isDirectory || *at == '/';
    at += strspn(at, "/");
    const size_t size = strcspn(at, "/");
    const bool isUp = size == 2 && at[0] == '.' && at[1] == '.';
    if (size == 0) break;
    if (isUp || (size == 1 && at[0] == '.')) {
      if (!isDirectory(walk)) return false;
      if (isUp) leave(walk);
      path->isDirectory = true;
      at += size;
    } else {
      bool followed = false;
      if (!enter(walk, at, size, &followed)) return false;
      path->isDirectory = false;
      at = followed ? walk->rest : at + size;
    }
  }
  return !path->isDirectory || isDirectory(walk);
}

bool pathResolve(int directory, const char* path, Path* into) {
  Walk walk = {.text = into->text};
  into->text[0] = '\0';
  into->isDirectory = false;
  errno = ENOENT;
  const bool fits = snprintf(walk.rest, sizeof(walk.rest), "%s", path) < PATH_MAX;
  if (fits && (path[0] == '/' || begin(&walk, directory)) && resolve(&walk, into)) return true;
  if (errno != ENOTDIR) errno = ENOENT;
  return false;
}

bool pathIsLink(int directory, const char* path) {
  const int saved = errno;
  char first;
  const bool isLink = realReadlinkat(directory, path, &first, 1) == 1;
  errno = saved;
  return isLink;
}
