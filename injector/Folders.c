#include "Folders.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>

#include "Real.h"

enum { maxFolders = 64, beingFilled = -1 };

static const char underneath[] = "/sys/class";

typedef struct Folder {
  atomic_int number;  // The descriptor plus one, 0 for none.
  Place place;
  char name[96];
} Folder;

static Folder folders[maxFolders];
static atomic_int folderCount;

// False if the number was closed without notice and is something else by now.
static bool isStill(int descriptor) {
  const int saved = errno;
  struct stat mine;
  struct stat wanted;
  const bool same = realFstatat(descriptor, "", &mine, AT_EMPTY_PATH) == 0 &&
                    realFstatat(AT_FDCWD, underneath, &wanted, 0) == 0 &&
                    mine.st_dev == wanted.st_dev && mine.st_ino == wanted.st_ino;
  errno = saved;
  return same;
}

static void release(Folder* folder, int number) {
  if (atomic_compare_exchange_strong(&folder->number, &number, 0)) {
    atomic_fetch_sub(&folderCount, 1);
  }
}

static Folder* find(int descriptor) {
  if (descriptor < 0 || atomic_load_explicit(&folderCount, memory_order_relaxed) == 0) return NULL;
  for (int i = 0; i < maxFolders; ++i) {
    if (atomic_load(&folders[i].number) == descriptor + 1) return &folders[i];
  }
  return NULL;
}

static bool note(int descriptor, const Place* place, const char* name) {
  for (int i = 0; i < maxFolders; ++i) {
    int none = 0;
    if (!atomic_compare_exchange_strong(&folders[i].number, &none, beingFilled)) continue;
    folders[i].place = *place;
    snprintf(folders[i].name, sizeof(folders[i].name), "%.90s", name);
    atomic_fetch_add(&folderCount, 1);
    atomic_store(&folders[i].number, descriptor + 1);
    return true;
  }
  return false;
}

// Makes room by forgetting what was closed without notice.
static void sweep(void) {
  for (int i = 0; i < maxFolders; ++i) {
    const int number = atomic_load(&folders[i].number);
    if (number > 0 && !isStill(number - 1)) release(&folders[i], number);
  }
}

// The error that the flags deserve, or 0.
static int refusal(const Place* place, int flags) {
  const bool staysLink = place->isLink && (flags & O_NOFOLLOW);
  if (staysLink && (flags & O_DIRECTORY)) return ENOTDIR;
  if (staysLink && !(flags & O_PATH)) return ELOOP;
  const bool writes = (flags & O_CREAT) || (flags & O_ACCMODE) != O_RDONLY;
  return writes && !(flags & O_PATH) ? EISDIR : 0;
}

int folderOpen(const Place* place, int flags) {
  const int error = refusal(place, flags);
  if (error) {
    errno = error;
    return -1;
  }
  const int kept = flags & (O_PATH | O_CLOEXEC | O_NONBLOCK);
  const int descriptor = realOpenat(AT_FDCWD, underneath, kept | O_RDONLY | O_DIRECTORY, 0);
  if (descriptor < 0) return -1;
  Place opened = *place;
  opened.isLink = place->isLink && (flags & O_NOFOLLOW);
  char name[PATH_MAX];
  placeRealName(&opened, name);
  folderClosed(descriptor);
  if (handlesAreOurs()) {
    if (note(descriptor, &opened, name)) return descriptor;
    sweep();
    if (note(descriptor, &opened, name)) return descriptor;
  }
  realClose(descriptor);
  errno = EMFILE;
  return -1;
}

bool folderFind(int descriptor, Place* into) {
  const Folder* folder = find(descriptor);
  if (!folder || !isStill(descriptor)) return false;
  *into = folder->place;
  return true;
}

const char* folderName(int descriptor) {
  const Folder* folder = find(descriptor);
  return folder && isStill(descriptor) ? folder->name : NULL;
}

void folderCopied(int descriptor, int copy) {
  if (descriptor == copy) return;
  folderClosed(copy);
  const Folder* folder = find(descriptor);
  if (folder && handlesAreOurs() && isStill(descriptor)) note(copy, &folder->place, folder->name);
}

void folderClosed(int descriptor) {
  Folder* folder = find(descriptor);
  if (folder && handlesAreOurs()) release(folder, descriptor + 1);
}
