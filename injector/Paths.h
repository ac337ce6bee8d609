// Paths.h - where a path leads at whose end the kernel found nothing.
//
// The kernel follows a link to a camera as it does any other, and finds that nothing is there. Its
// walk is then repeated here, link by link up to the first name that does not exist; what follows
// that is taken as text.
// Threads: any. Owns: nothing.
#pragma once

#include <limits.h>
#include <stdbool.h>

typedef struct Path {
  char text[PATH_MAX];  ///< Absolute, without links on the way, ".", ".." and needless slashes.
  bool isDirectory;     ///< It was written as that of a directory, with a slash behind it.
} Path;

/// Resolves a path that openat() would take. False if that is impossible, errno being ENOTDIR where
/// it uses a camera or a file of ours as a directory, else ENOENT.
bool pathResolve(int directory, const char* path, Path* into);

/// True if the path itself is a link.
bool pathIsLink(int directory, const char* path);
