// Real.h - the C library behind the interposed calls.
//
// Threads: any. The table is filled once by the constructor; before that the wrappers below go to
// the kernel directly, so that an interposed call works however early it comes.
// Owns: nothing.
#pragma once

#include <dirent.h>
#include <glob.h>
#include <stdbool.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>

/// The next definition of each interposed function in the search order, so that other preloaded
/// libraries and sanitizers keep their place in the chain.
typedef struct RealCalls {
  int (*openat)(int, const char*, int, ...);
  int (*close)(int);
  int (*close_range)(unsigned, unsigned, int);
  void (*closefrom)(int);
  int (*dup)(int);
  int (*dup2)(int, int);
  int (*dup3)(int, int, int);
  int (*fcntl)(int, int, ...);
  int (*ioctl)(int, unsigned long, ...);
  ssize_t (*read)(int, void*, size_t);
  void* (*mmap)(void*, size_t, int, int, int, off_t);
  int (*munmap)(void*, size_t);
  int (*fstatat)(int, const char*, struct stat*, int);
  int (*statx)(int, const char*, int, unsigned, struct statx*);
  int (*faccessat)(int, const char*, int, int);
  ssize_t (*readlinkat)(int, const char*, char*, size_t);
  ssize_t (*getxattr)(const char*, const char*, void*, size_t);
  ssize_t (*lgetxattr)(const char*, const char*, void*, size_t);
  char* (*realpath)(const char*, char*);
  DIR* (*opendir)(const char*);
  DIR* (*fdopendir)(int);
  struct dirent* (*readdir)(DIR*);
  int (*closedir)(DIR*);
  void (*rewinddir)(DIR*);
  int (*scandir)(const char*, struct dirent***, int (*)(const struct dirent*),
                 int (*)(const struct dirent**, const struct dirent**));
  int (*glob)(const char*, int, int (*)(const char*, int), glob_t*);
  int (*readdirR)(DIR*, struct dirent*, struct dirent**);
  long (*telldir)(DIR*);
  void (*seekdir)(DIR*, long);
  int (*scandirat)(int, const char*, struct dirent***, int (*)(const struct dirent*),
                   int (*)(const struct dirent**, const struct dirent**));
  FILE* (*fopen)(const char*, const char*);
  FILE* (*freopen)(const char*, const char*, FILE*);
} RealCalls;

extern RealCalls real;

/// Fills `real`. Called by the constructor.
void realResolve(void);

/// True once the constructor ran: before that every interposed call only passes through.
bool realReady(void);

// The calls that are needed before the constructor too.
int realOpenat(int directory, const char* path, int flags, mode_t mode);
int realClose(int descriptor);
int realIoctl(int descriptor, unsigned long request, void* argument);
ssize_t realRead(int descriptor, void* into, size_t size);
void* realMmap(void* address, size_t size, int protection, int flags, int descriptor, off_t offset);
int realMunmap(void* address, size_t size);
int realFstatat(int directory, const char* path, struct stat* into, int flags);
int realFaccessat(int directory, const char* path, int mode, int flags);
ssize_t realReadlinkat(int directory, const char* path, char* into, size_t size);
