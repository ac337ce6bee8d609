#include "Real.h"

#include <dlfcn.h>
#include <stdatomic.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

RealCalls real;
static atomic_bool ready;

void realResolve(void) {
  // Objects and functions may not be cast into each other in ISO C; dlsym's result is copied.
#define RESOLVE(result, name, arguments)         \
  do {                                           \
    void* symbol = dlsym(RTLD_NEXT, #name);      \
    memcpy(&real.name, &symbol, sizeof(symbol)); \
  } while (0);
  REAL_CALLS(RESOLVE)
#undef RESOLVE
}

void realStart(void) { atomic_store_explicit(&ready, true, memory_order_release); }

bool realReady(void) { return atomic_load_explicit(&ready, memory_order_acquire); }

int realOpenat(int directory, const char* path, int flags, mode_t mode) {
  if (real.openat) return real.openat(directory, path, flags, mode);
  return (int)syscall(SYS_openat, directory, path, flags, mode);
}

int realClose(int descriptor) {
  if (real.close) return real.close(descriptor);
  return (int)syscall(SYS_close, descriptor);
}

int realIoctl(int descriptor, unsigned long request, void* argument) {
  if (real.ioctl) return real.ioctl(descriptor, request, argument);
  return (int)syscall(SYS_ioctl, descriptor, request, argument);
}

ssize_t realRead(int descriptor, void* into, size_t size) {
  if (real.read) return real.read(descriptor, into, size);
  return syscall(SYS_read, descriptor, into, size);
}

void* realMmap(void* address, size_t size, int protection, int flags, int descriptor,
               off_t offset) {
  // syscall() answers with a number, -1 being MAP_FAILED.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return (void*)syscall(SYS_mmap, address, size, protection, flags, descriptor, offset);
}

int realMunmap(void* address, size_t size) { return (int)syscall(SYS_munmap, address, size); }

int realFstatat(int directory, const char* path, struct stat* into, int flags) {
  if (real.fstatat) return real.fstatat(directory, path, into, flags);
  return (int)syscall(SYS_newfstatat, directory, path, into, flags);
}

int realFaccessat(int directory, const char* path, int mode, int flags) {
  if (real.faccessat) return real.faccessat(directory, path, mode, flags);
  return (int)syscall(SYS_faccessat, directory, path, mode);
}

ssize_t realReadlinkat(int directory, const char* path, char* into, size_t size) {
  if (real.readlinkat) return real.readlinkat(directory, path, into, size);
  return syscall(SYS_readlinkat, directory, path, into, size);
}
