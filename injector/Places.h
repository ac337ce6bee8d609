// Places.h - the paths under which the cameras are found.
//
// A path is looked at only after the kernel said that nothing is there. A real device therefore
// always wins, an ordinary program pays at most a look whether the path is a link, and a bad
// pointer was refused before it is read. Threads: any. Owns: nothing. Fails: a path that is none of
// ours is placeNone, with the errno that the kernel would give if the cameras were its own.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include "Device.h"

typedef struct Place {
  enum {
    placeNone,
    placeDevice,     ///< /dev/videoN
    placeClasses,    ///< /sys/class, only ever as a directory that lists our names too
    placeClass,      ///< /sys/class/video4linux
    placeDevices,    ///< /sys/devices/virtual/video4linux
    placeDirectory,  ///< videoN in it, and what else leads there
    placeFile,       ///< a file in it, or what udev knows of a camera
  } kind;
  Device* device;
  const char* file;  ///< For placeFile.
  bool isLink;       ///< The path itself is a symbolic link to the place.
} Place;

/// What a path that does not exist means.
Place placeFind(int directory, const char* path);

/// True if an absolute path without links is a directory that only we have; else errno tells why
/// not.
bool placeIsDirectory(const char* path);

/// What a camera's descriptor looks like to fstat().
void placeStatDevice(const Device* device, struct stat* into);

/// What stat() says; lstat() if `follow` is false.
void placeStat(const Place* place, bool follow, struct stat* into);

/// Opens a place with open()'s flags. The descriptor, or -1 with errno.
int placeOpen(const Place* place, int flags);

/// access(): 0, or -1 with errno.
int placeAccess(const Place* place, int mode);

/// The real name of a place, as realpath() gives it. `into` holds PATH_MAX bytes.
void placeRealName(const Place* place, char* into);

/// Name and type of the n-th thing that we add to a directory; false behind the last.
bool placeEntry(const Place* directory, int n, char name[static 32], unsigned char* type);

/// The path of a directory which only we have and this descriptor stands for, or NULL.
/// Provided by Directories.c.
const char* directoryNameOf(int descriptor);
