// Directories.c - the interposed calls that list directories: our names come behind the real ones.
//
// A directory that only we have is a stream on "/" whose own entries are left out.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "Export.h"
#include "Folders.h"
#include "Places.h"
#include "Real.h"

enum { maxListings = 64, maxEntries = 16, firstPosition = 0x4c4c0000 };

// A stream that we add to. As with any directory stream, one thread uses it at a time; of those of
// others no more is looked at than is noted here, as they may close them meanwhile.
typedef struct Listing {
  _Atomic(DIR*) stream;
  atomic_int descriptor;
  Place place;
  char name[96];  // Of a directory that only we have, else empty.
  int next;
  struct dirent entry;
} Listing;

static Listing listings[maxListings];
static atomic_int listingCount;

static Listing* find(DIR* stream) {
  if (!stream || atomic_load_explicit(&listingCount, memory_order_relaxed) == 0) return NULL;
  for (int i = 0; i < maxListings; ++i) {
    if (atomic_load(&listings[i].stream) == stream) return &listings[i];
  }
  return NULL;
}

static void add(DIR* stream, const Place* place, const char* name) {
  for (int i = 0; i < maxListings; ++i) {
    DIR* none = NULL;
    if (!atomic_compare_exchange_strong(&listings[i].stream, &none, stream)) continue;
    listings[i].place = *place;
    listings[i].next = 0;
    listings[i].name[0] = '\0';
    if (name) snprintf(listings[i].name, sizeof(listings[i].name), "%.90s", name);
    atomic_store(&listings[i].descriptor, dirfd(stream));
    atomic_fetch_add(&listingCount, 1);
    return;
  }
}

static void forget(DIR* stream) {
  Listing* listing = find(stream);
  if (!listing) return;
  folderClosed(dirfd(stream));
  atomic_store(&listing->descriptor, -1);
  atomic_store(&listing->stream, NULL);
  atomic_fetch_sub(&listingCount, 1);
}

static const char* streamName(int descriptor) {
  if (descriptor < 0 || atomic_load_explicit(&listingCount, memory_order_relaxed) == 0) return NULL;
  for (int i = 0; i < maxListings; ++i) {
    if (atomic_load(&listings[i].stream) && listings[i].name[0] &&
        atomic_load(&listings[i].descriptor) == descriptor) {
      return listings[i].name;
    }
  }
  return NULL;
}

const char* directoryNameOf(int descriptor) {
  const char* name = streamName(descriptor);
  return name ? name : folderName(descriptor);
}

static bool isSame(const struct stat* status, const char* path) {
  struct stat other;
  return realFstatat(AT_FDCWD, path, &other, 0) == 0 && other.st_dev == status->st_dev &&
         other.st_ino == status->st_ino;
}

// Adds our names to a stream on a directory that exists, if they belong there.
static void watch(DIR* stream) {
  const int saved = errno;
  struct stat status;
  Place folder;
  if (folderFind(dirfd(stream), &folder)) {
    add(stream, &folder, folderName(dirfd(stream)));
  } else if (realFstatat(dirfd(stream), "", &status, AT_EMPTY_PATH) == 0) {
    if (isSame(&status, "/dev")) {
      add(stream, &(Place){placeDevice, NULL, NULL, false}, NULL);
    } else if (isSame(&status, "/sys/class/video4linux")) {
      add(stream, &(Place){placeClass, NULL, NULL, false}, NULL);
    } else if (isSame(&status, "/sys/class") &&
               realFaccessat(AT_FDCWD, "/sys/class/video4linux", F_OK, 0) != 0) {
      add(stream, &(Place){placeClasses, NULL, NULL, false}, NULL);
    }
  }
  errno = saved;
}

static bool mayBeOurs(const char* path) {
  return strstr(path, "dev") || strstr(path, "class") || strstr(path, "video4linux") ||
         path[0] == '.';
}

LENSLARK_EXPORT DIR* opendir(const char* path) {
  DIR* stream = NEXT(opendir)(path);
  if (!realReady()) return stream;
  if (stream) {
    if (mayBeOurs(path)) watch(stream);
    return stream;
  }
  if (errno != ENOENT) return NULL;
  const Place place = placeFind(AT_FDCWD, path);
  if (place.kind != placeClass && place.kind != placeDevices && place.kind != placeDirectory) {
    if (place.kind != placeNone) errno = ENOTDIR;
    return NULL;
  }
  stream = NEXT(opendir)("/");
  if (stream) {
    char name[4096];
    placeRealName(&place, name);
    add(stream, &place, name);
  }
  return stream;
}

LENSLARK_EXPORT DIR* fdopendir(int descriptor) {
  DIR* stream = NEXT(fdopendir)(descriptor);
  if (stream && realReady()) watch(stream);
  return stream;
}

static struct dirent* makeEntry(Listing* listing, const char* name, unsigned char type) {
  memset(&listing->entry, 0, sizeof(listing->entry));
  listing->entry.d_ino = (ino_t)(firstPosition + listing->next);
  listing->entry.d_off = firstPosition + listing->next + 1;
  listing->entry.d_reclen = sizeof(listing->entry);
  listing->entry.d_type = type;
  strncpy(listing->entry.d_name, name, sizeof(listing->entry.d_name) - 1);
  ++listing->next;
  return &listing->entry;
}

// What follows `entry`, which the next definition found: ours come behind all others.
static struct dirent* listed(Listing* listing, struct dirent* entry) {
  char name[32];
  unsigned char type;
  if (entry || !placeEntry(&listing->place, listing->next, name, &type)) return entry;
  return makeEntry(listing, name, type);
}

// True while the directory's own entries are listed. A directory that only we have has none.
static bool isAtOthers(const Listing* listing) {
  return listing->name[0] == '\0' && listing->next == 0;
}

LENSLARK_EXPORT struct dirent* readdir(DIR* stream) {
  Listing* listing = find(stream);
  if (!listing) return NEXT(readdir)(stream);
  return listed(listing, isAtOthers(listing) ? NEXT(readdir)(stream) : NULL);
}

LENSLARK_EXPORT struct dirent64* readdir64(DIR* stream) {
  Listing* listing = find(stream);
  if (!listing) return NEXT(readdir64)(stream);
  struct dirent64* entry = isAtOthers(listing) ? NEXT(readdir64)(stream) : NULL;
  return (struct dirent64*)listed(listing, (struct dirent*)entry);
}

static int readInto(DIR* stream, struct dirent* into, struct dirent** result) {
  const struct dirent* entry = readdir(stream);
  if (entry) {
    memcpy(into, entry, entry->d_reclen < sizeof(*into) ? entry->d_reclen : sizeof(*into));
  }
  *result = entry ? into : NULL;
  return 0;
}

LENSLARK_EXPORT int readdir_r(DIR* restrict stream, struct dirent* restrict into,
                              struct dirent** restrict result) {
  return find(stream) ? readInto(stream, into, result) : NEXT(readdir_r)(stream, into, result);
}

LENSLARK_EXPORT int readdir64_r(DIR* restrict stream, struct dirent64* restrict into,
                                struct dirent64** restrict result) {
  return find(stream) ? readInto(stream, (struct dirent*)into, (struct dirent**)result)
                      : NEXT(readdir64_r)(stream, into, result);
}

LENSLARK_EXPORT int closedir(DIR* stream) {
  forget(stream);
  return NEXT(closedir)(stream);
}

LENSLARK_EXPORT void rewinddir(DIR* stream) {
  Listing* listing = find(stream);
  if (listing) listing->next = 0;
  NEXT(rewinddir)(stream);
}

LENSLARK_EXPORT long telldir(DIR* stream) {
  const Listing* listing = find(stream);
  return listing && listing->next > 0 ? firstPosition + listing->next : NEXT(telldir)(stream);
}

LENSLARK_EXPORT void seekdir(DIR* stream, long position) {
  Listing* listing = find(stream);
  const bool ours = listing && position > firstPosition && position <= firstPosition + maxEntries;
  if (listing) listing->next = ours ? (int)(position - firstPosition) : 0;
  if (!ours) NEXT(seekdir)(stream, position);
}

// Collects what a stream lists; -1 with errno if memory runs out.
static int collect(DIR* stream, struct dirent*** into, RealFilter filter) {
  struct dirent** entries = NULL;
  int count = 0;
  const struct dirent* entry;
  while ((entry = readdir(stream))) {
    if (filter && !filter(entry)) continue;
    struct dirent** more = realloc(entries, ((size_t)count + 1) * sizeof(*entries));
    if (more) entries = more;
    struct dirent* copy = more ? malloc(sizeof(*copy)) : NULL;
    if (!copy) {
      while (count > 0) free(entries[--count]);
      free(entries);
      errno = ENOMEM;
      return -1;
    }
    memcpy(copy, entry, entry->d_reclen < sizeof(*copy) ? entry->d_reclen : sizeof(*copy));
    entries[count++] = copy;
  }
  *into = entries;
  return count;
}

// Lists `stream` and closes it.
static int collectAll(DIR* stream, struct dirent*** into, RealFilter filter, RealOrder order) {
  const int count = collect(stream, into, filter);
  closedir(stream);
  if (count > 1 && order) {
    qsort(*into, (size_t)count, sizeof(**into), (int (*)(const void*, const void*))order);
  }
  return count;
}

// A stream on a directory that lists our names too, or NULL.
static DIR* ownListing(int directory, const char* path) {
  const bool relative = path[0] != '/' && directory != AT_FDCWD;
  if (!relative && !mayBeOurs(path)) return NULL;
  const int saved = errno;
  DIR* stream = NULL;
  if (relative) {
    const int descriptor = openat(directory, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0 && !(stream = fdopendir(descriptor))) realClose(descriptor);
  } else {
    stream = opendir(path);
  }
  if (stream && !find(stream)) {
    closedir(stream);
    stream = NULL;
  }
  errno = saved;
  return stream;
}

LENSLARK_EXPORT int scandir(const char* restrict path, struct dirent*** restrict into,
                            RealFilter filter, RealOrder order) {
  DIR* stream = ownListing(AT_FDCWD, path);
  return stream ? collectAll(stream, into, filter, order)
                : NEXT(scandir)(path, into, filter, order);
}

LENSLARK_EXPORT int scandirat(int directory, const char* restrict path,
                              struct dirent*** restrict into, RealFilter filter, RealOrder order) {
  DIR* stream = ownListing(directory, path);
  return stream ? collectAll(stream, into, filter, order)
                : NEXT(scandirat)(directory, path, into, filter, order);
}

LENSLARK_EXPORT int scandir64(const char* restrict path, struct dirent64*** restrict into,
                              RealFilter64 filter, RealOrder64 order) {
  DIR* stream = ownListing(AT_FDCWD, path);
  return stream ? collectAll(stream, (struct dirent***)into, (RealFilter)filter, (RealOrder)order)
                : NEXT(scandir64)(path, into, filter, order);
}

LENSLARK_EXPORT int scandirat64(int directory, const char* restrict path,
                                struct dirent64*** restrict into, RealFilter64 filter,
                                RealOrder64 order) {
  DIR* stream = ownListing(directory, path);
  return stream ? collectAll(stream, (struct dirent***)into, (RealFilter)filter, (RealOrder)order)
                : NEXT(scandirat64)(directory, path, into, filter, order);
}

static void* globOpen(const char* path) { return opendir(path); }
static struct dirent* globRead(void* stream) { return readdir(stream); }
static void globClose(void* stream) { closedir(stream); }

// What the C library refuses it is left to refuse.
static bool mayMatchOurs(const char* pattern, int flags, const void* into) {
  return pattern && into && (flags & GLOB_ALTDIRFUNC) == 0 &&
         (strstr(pattern, "/dev/") || strstr(pattern, "video4linux"));
}

// The C library lists with its own calls unless it is given others.
static int globOurs(const char* pattern, int flags, int (*failed)(const char*, int), glob_t* into) {
  into->gl_opendir = globOpen;
  into->gl_readdir = globRead;
  into->gl_closedir = globClose;
  into->gl_stat = stat;
  into->gl_lstat = lstat;
  return NEXT(glob)(pattern, flags | GLOB_ALTDIRFUNC, failed, into);
}

LENSLARK_EXPORT int glob(const char* restrict pattern, int flags, int (*failed)(const char*, int),
                         glob_t* restrict into) {
  return mayMatchOurs(pattern, flags, into) ? globOurs(pattern, flags, failed, into)
                                            : NEXT(glob)(pattern, flags, failed, into);
}

LENSLARK_EXPORT int glob64(const char* restrict pattern, int flags, int (*failed)(const char*, int),
                           glob64_t* restrict into) {
  return mayMatchOurs(pattern, flags, into) ? globOurs(pattern, flags, failed, (glob_t*)into)
                                            : NEXT(glob64)(pattern, flags, failed, into);
}
