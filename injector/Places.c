#include "Places.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Folders.h"
#include "Paths.h"
#include "Real.h"

enum { videoMajor = 81 };

static const char classDirectory[] = "/sys/class/video4linux";
static const char deviceDirectory[] = "/sys/devices/virtual/video4linux";
static const char numberDirectory[] = "/sys/dev/char";
static const char databaseDirectory[] = "/run/udev/data";
static const char databaseName[] = "c81";
static const char* const fileNames[] = {"name", "dev", "index", "uevent"};

enum { fileCount = sizeof(fileNames) / sizeof(fileNames[0]) };

// The rest of `path` behind `prefix`, which ends at a slash or at the end.
static const char* behind(const char* path, const char* prefix) {
  const size_t length = strlen(prefix);
  if (strncmp(path, prefix, length) != 0) return NULL;
  if (path[length] == '/') return path + length + 1;
  return path[length] == '\0' ? path + length : NULL;
}

// Reads the camera's number after `prefix`; `rest` is what follows.
static Device* numbered(const char* text, const char* prefix, const char** rest) {
  const size_t length = strlen(prefix);
  if (strncmp(text, prefix, length) != 0) return NULL;
  const char* digits = text + length;
  if (*digits < '0' || *digits > '9' ||
      (digits[0] == '0' && digits[1] >= '0' && digits[1] <= '9')) {
    return NULL;
  }
  char* end = NULL;
  const long number = strtol(digits, &end, 10);
  *rest = end;
  return deviceWithNumber(number);
}

// Nothing of ours. What is below a thing that is no directory deserves another error.
static Place nothing(bool isBelowFile) {
  errno = isBelowFile ? ENOTDIR : ENOENT;
  return (Place){placeNone, NULL, NULL, false};
}

static Place below(Device* device, const char* rest, bool isLink) {
  const char* linked;
  while (device && *rest == '/' && (linked = behind(rest + 1, "subsystem"))) {
    if (*linked == '\0') return (Place){placeClass, NULL, NULL, true};
    device = numbered(linked, "video", &rest);
    isLink = true;
  }
  if (!device) return nothing(false);
  if (*rest == '\0') return (Place){placeDirectory, device, NULL, isLink};
  for (int i = 0; *rest == '/' && i < fileCount; ++i) {
    const char* end = behind(rest + 1, fileNames[i]);
    if (end) return *end ? nothing(true) : (Place){placeFile, device, fileNames[i], false};
  }
  return nothing(false);
}

// What a path without links is of ours. If it is nothing, errno tells why.
static Place recognise(const char* path) {
  const char* rest = behind(path, "/dev");
  if (rest) {
    const char* end = "";
    Device* device = numbered(rest, "video", &end);
    bool isLink = false;
    if (!device) {
      device = numbered(rest, "char/81:", &end);
      isLink = true;
    }
    return device && *end == '\0' ? (Place){placeDevice, device, NULL, isLink}
                                  : nothing(device && *end == '/');
  }
  rest = behind(path, classDirectory);
  const bool inClass = rest != NULL;
  if (!rest) rest = behind(path, deviceDirectory);
  if (rest) {
    if (*rest == '\0') return (Place){inClass ? placeClass : placeDevices, NULL, NULL, false};
    const char* end = "";
    Device* device = numbered(rest, "video", &end);
    return below(device, end, inClass);
  }
  rest = behind(path, databaseDirectory);
  if (rest) {
    const char* end = "";
    Device* device = numbered(rest, "c81:", &end);
    return device && *end == '\0' ? (Place){placeFile, device, databaseName, false}
                                  : nothing(device && *end == '/');
  }
  rest = behind(path, numberDirectory);
  if (rest) {
    const char* end = "";
    Device* device = numbered(rest, "81:", &end);
    return below(device, end, true);
  }
  return nothing(false);
}

bool placeIsDirectory(const char* path) {
  const Place place = recognise(path);
  if (place.kind == placeDevice || place.kind == placeFile) errno = ENOTDIR;
  return place.kind == placeClass || place.kind == placeDevices || place.kind == placeDirectory;
}

static bool isNumbered(const char* name, const char* prefix) {
  const size_t length = strlen(prefix);
  return strncmp(name, prefix, length) == 0 && name[length] >= '0' && name[length] <= '9';
}

// Most of what is missing has nothing in common with our names, "video4linux" being one of them.
static bool resemblesOurs(const char* path) {
  while (*path) {
    if (isNumbered(path, "video") || isNumbered(path, "81:") || isNumbered(path, "c81:")) {
      return true;
    }
    path += strcspn(path, "/");
    path += strspn(path, "/");
  }
  return false;
}

Place placeFind(int directory, const char* path) {
  if (*path == '\0') return nothing(false);
  if (!resemblesOurs(path) && !directoryNameOf(directory) && !pathIsLink(directory, path)) {
    return nothing(false);
  }
  const int saved = errno;
  Path whole;
  if (!pathResolve(directory, path, &whole)) return (Place){placeNone, NULL, NULL, false};
  Place place = recognise(whole.text);
  if (place.kind == placeNone) return place;
  // Whoever writes a slash means what the link leads to.
  if (whole.isDirectory) place.isLink = false;
  errno = saved;
  return place;
}

static int contents(const Place* place, char into[static 128]) {
  const int number = deviceNumber(place->device);
  if (strcmp(place->file, "name") == 0) return snprintf(into, 128, "%s\n", place->device->name);
  if (strcmp(place->file, "dev") == 0) return snprintf(into, 128, "%d:%d\n", videoMajor, number);
  if (strcmp(place->file, "index") == 0) return snprintf(into, 128, "0\n");
  // As udev notes what it found out about a camera.
  if (place->file == databaseName) {
    return snprintf(into, 128,
                    "I:1\nE:ID_V4L_VERSION=2\nE:ID_V4L_PRODUCT=%s\n"
                    "E:ID_V4L_CAPABILITIES=:capture:\n",
                    place->device->name);
  }
  return snprintf(into, 128, "MAJOR=%d\nMINOR=%d\nDEVNAME=video%d\n", videoMajor, number, number);
}

void placeStatDevice(const Device* device, struct stat* into) {
  // Everything that has no meaning here is as for any node of /dev.
  if (realFstatat(AT_FDCWD, "/dev/null", into, 0) != 0) memset(into, 0, sizeof(*into));
  const int number = deviceNumber(device);
  into->st_mode = S_IFCHR | 0660;
  into->st_nlink = 1;
  into->st_rdev = makedev(videoMajor, (unsigned)number);
  into->st_ino = (ino_t)(0x4c4c0000 + number);
  into->st_uid = geteuid();
  into->st_gid = getegid();
}

void placeStat(const Place* place, bool follow, struct stat* into) {
  if (place->kind == placeDevice && (follow || !place->isLink)) {
    placeStatDevice(place->device, into);
    return;
  }
  if (realFstatat(AT_FDCWD, "/sys", into, 0) != 0) memset(into, 0, sizeof(*into));
  into->st_ino = (ino_t)(0x4c4c1000 + (place->device ? 1 + place->device->index : 0));
  if (place->kind == placeDevices) into->st_ino += deviceCount + 1;
  into->st_nlink = 1;
  into->st_size = 0;
  if (place->kind == placeFile) {
    char text[128];
    into->st_mode = S_IFREG | 0444;
    into->st_size = contents(place, text);
    into->st_ino += (ino_t)(0x100 * (1 + (int)place->file[0]));
  } else if (place->isLink && !follow) {
    into->st_mode = S_IFLNK | 0777;
  } else {
    into->st_mode = S_IFDIR | 0755;
    into->st_nlink = 2;
  }
}

int placeOpen(const Place* place, int flags) {
  if (place->kind == placeDevice) {
    if ((flags & O_CREAT) && (flags & O_EXCL)) {
      errno = EEXIST;
      return -1;
    }
    if (flags & O_DIRECTORY) {
      errno = ENOTDIR;
      return -1;
    }
    return handleOpen(place->device, flags);
  }
  if (place->kind != placeFile) return folderOpen(place, flags);
  if ((flags & O_ACCMODE) != O_RDONLY) {
    errno = EACCES;
    return -1;
  }
  char text[128];
  const int length = contents(place, text);
  const int descriptor = memfd_create(place->file, (flags & O_CLOEXEC) ? MFD_CLOEXEC : 0);
  if (descriptor < 0) return -1;
  if (pwrite(descriptor, text, (size_t)length, 0) != length) {
    realClose(descriptor);
    errno = EIO;
    return -1;
  }
  return descriptor;
}

int placeAccess(const Place* place, int mode) {
  const int allowed = place->kind == placeDevice ? R_OK | W_OK
                      : place->kind == placeFile ? R_OK
                                                 : R_OK | X_OK;
  if ((mode & ~allowed) == 0) return 0;
  errno = EACCES;
  return -1;
}

void placeRealName(const Place* place, char* into) {
  const int number = place->device ? deviceNumber(place->device) : 0;
  switch (place->kind) {
    case placeDevice:
      snprintf(into, PATH_MAX, "/dev/video%d", number);
      break;
    case placeDevices:
      snprintf(into, PATH_MAX, "%s", deviceDirectory);
      break;
    case placeDirectory:
      snprintf(into, PATH_MAX, "%s/video%d", deviceDirectory, number);
      break;
    case placeFile:
      if (place->file == databaseName) {
        snprintf(into, PATH_MAX, "%s/c81:%d", databaseDirectory, number);
      } else {
        snprintf(into, PATH_MAX, "%s/video%d/%s", deviceDirectory, number, place->file);
      }
      break;
    default:
      snprintf(into, PATH_MAX, "%s", classDirectory);
  }
}

bool placeEntry(const Place* directory, int n, char name[static 32], unsigned char* type) {
  if (directory->kind == placeDirectory) {
    if (n > fileCount) return false;
    snprintf(name, 32, "%s", n < fileCount ? fileNames[n] : "subsystem");
    *type = n < fileCount ? DT_REG : DT_LNK;
    return true;
  }
  if (directory->kind == placeClasses) {
    if (n > 0) return false;
    snprintf(name, 32, "%s", strrchr(classDirectory, '/') + 1);
    *type = DT_DIR;
    return true;
  }
  if (n >= deviceCount) return false;
  snprintf(name, 32, "video%d", deviceNumber(deviceAt(n)));
  *type = directory->kind == placeDevice    ? DT_CHR
          : directory->kind == placeDevices ? DT_DIR
                                            : DT_LNK;
  return true;
}
