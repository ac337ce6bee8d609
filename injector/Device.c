#include "Device.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "Formats.h"
#include "Real.h"
#include "Stream.h"

enum { maxDescriptors = 65536, maxHandles = 256, maxNumber = 63, firstMark = 62 };

static Device devices[deviceCount];
static Handle handles[maxHandles];
static _Atomic uint16_t handleOf[maxDescriptors];  // Index plus one, 0 for no camera.
static atomic_uint usedDescriptors;                // One more than the highest that ever was ours.

void deviceConfigure(void) {
  static const char* const names[deviceCount] = {"Lenslark Camera", "Lenslark Camera (Front)"};
  static const LLCamera cameras[deviceCount] = {LLCameraBack, LLCameraFront};
  for (int i = 0; i < deviceCount; ++i) {
    devices[i].index = i;
    devices[i].name = names[i];
    devices[i].camera = cameras[i];
    devices[i].format = formatDefault();
    devices[i].interval = formatInterval((struct v4l2_fract){0, 0});
    pthread_mutex_init(&devices[i].lock, NULL);
  }
}

void deviceAdoptRedirected(void) {
  // As many as a shell redirects: `program < /dev/video0`.
  for (int descriptor = 0; descriptor < 10; ++descriptor) {
    Handle* handle = handleAdopt(descriptor);
    if (handle) handleUnpin(handle);
  }
}

Device* deviceAt(int index) { return &devices[index]; }

int deviceNumber(const Device* device) {
  // Settled when first asked, then constant. Two threads that ask first find the same.
  static atomic_int numbers[deviceCount] = {-1, -1};
  int number = atomic_load(&numbers[device->index]);
  if (number >= 0) return number;
  number = device->index == 0 ? 0 : deviceNumber(&devices[device->index - 1]) + 1;
  const int saved = errno;
  for (; number < maxNumber; ++number) {
    char path[32];
    struct stat status;
    snprintf(path, sizeof(path), "/dev/video%d", number);
    if (realFstatat(AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) break;
  }
  errno = saved;
  atomic_store(&numbers[device->index], number);
  return number;
}

Device* deviceWithNumber(long number) {
  for (int i = 0; i < deviceCount; ++i) {
    if (deviceNumber(&devices[i]) == number) return &devices[i];
  }
  return NULL;
}

// Whose memory this is. The kernel wipes the page in a fork()ed child, but not in a vfork()ed one.
typedef struct Ownership {
  atomic_int process;
} Ownership;
static _Atomic(Ownership*) ownership;

static bool claimMemory(void) {
  Ownership* mine = atomic_load(&ownership);
  if (!mine) {
    const size_t size = (size_t)sysconf(_SC_PAGESIZE);
    mine = realMmap(NULL, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mine == MAP_FAILED) return false;
    madvise(mine, size, MADV_WIPEONFORK);
    atomic_store(&mine->process, getpid());
    Ownership* none = NULL;
    if (!atomic_compare_exchange_strong(&ownership, &none, mine)) {
      realMunmap(mine, size);
      mine = none;
    }
  }
  return true;
}

bool handlesAreOurs(void) {
  Ownership* mine = atomic_load(&ownership);
  if (!mine) return true;
  int process = atomic_load(&mine->process);
  if (process == getpid()) return true;
  if (process != 0) return false;
  if (atomic_compare_exchange_strong(&mine->process, &process, getpid())) {
    // A fork()ed child: another thread of the parent may have held what is locked here.
    for (int i = 0; i < deviceCount; ++i) {
      pthread_mutex_init(&devices[i].lock, NULL);
      atomic_store(&devices[i].painting, false);
      devices[i].waiters = 0;
    }
  }
  return true;
}

static Handle* takeHandle(Device* device, int access) {
  for (int i = 0; i < maxHandles; ++i) {
    int none = 0;
    if (!atomic_compare_exchange_strong(&handles[i].uses, &none, 1)) continue;
    handles[i].device = device;
    handles[i].access = access;
    handles[i].priority = V4L2_PRIORITY_DEFAULT;
    return &handles[i];
  }
  return NULL;
}

static void give(int descriptor, Handle* handle) {
  atomic_store(&handleOf[descriptor], (uint16_t)(handle - handles + 1));
  unsigned used = atomic_load(&usedDescriptors);
  while (used <= (unsigned)descriptor &&
         !atomic_compare_exchange_weak(&usedDescriptors, &used, (unsigned)descriptor + 1)) {
  }
}

// The mark is the signal of asynchronous notice, which a timer never gives.
static int markOf(const Device* device) { return firstMark + device->index; }

// Where a sandbox forbids marks every descriptor is believed.
static atomic_bool cannotMark;

static void mark(int descriptor, const Device* device) {
  if (syscall(SYS_fcntl, descriptor, F_SETSIG, markOf(device)) != 0) {
    atomic_store(&cannotMark, true);
  }
}

static bool isMarked(int descriptor, const Device* device) {
  if (atomic_load_explicit(&cannotMark, memory_order_relaxed)) return true;
  const int saved = errno;
  const bool marked = syscall(SYS_fcntl, descriptor, F_GETSIG) == markOf(device);
  errno = saved;
  return marked;
}

// Makes a timer the descriptor of a camera.
static bool enlist(int descriptor, Device* device, int access, bool idle) {
  handleClosed(descriptor);
  if (descriptor >= maxDescriptors) return false;
  Handle* handle = takeHandle(device, access);
  if (!handle && handlesSweep()) handle = takeHandle(device, access);
  if (!handle) return false;
  give(descriptor, handle);
  if (idle) streamOpened(handle, descriptor);
  return true;
}

int handleOpen(Device* device, int flags) {
  if (!claimMemory() || !handlesAreOurs()) {
    errno = ENOMEM;
    return -1;
  }
  const int descriptor =
      timerfd_create(CLOCK_MONOTONIC, ((flags & O_NONBLOCK) ? TFD_NONBLOCK : 0) |
                                          ((flags & O_CLOEXEC) ? TFD_CLOEXEC : 0));
  if (descriptor < 0) return -1;
  mark(descriptor, device);
  if (enlist(descriptor, device, flags & O_ACCMODE, true)) return descriptor;
  realClose(descriptor);
  errno = EMFILE;
  return -1;
}

// True if nothing is due. Another process may be streaming, which then waits for what is.
static bool isIdle(int descriptor, const struct itimerspec* left) {
  struct pollfd wanted = {.fd = descriptor, .events = POLLIN};
  return left->it_value.tv_sec == 0 && left->it_value.tv_nsec == 0 && poll(&wanted, 1, 0) == 0;
}

Handle* handleAdopt(int descriptor) {
  const int saved = errno;
  const long found = syscall(SYS_fcntl, descriptor, F_GETSIG);
  struct itimerspec left;
  const bool known =
      found >= firstMark && found < firstMark + deviceCount &&
      timerfd_gettime(descriptor, &left) == 0 && claimMemory() && handlesAreOurs() &&
      enlist(descriptor, &devices[found - firstMark], O_RDWR, isIdle(descriptor, &left));
  errno = saved;
  return known ? handlePin(descriptor) : NULL;
}

bool handleIs(int descriptor) {
  if (descriptor < 0 || descriptor >= maxDescriptors) return false;
  uint16_t place = atomic_load_explicit(&handleOf[descriptor], memory_order_relaxed);
  if (place == 0 || !handlesAreOurs()) return false;
  Handle* handle = &handles[place - 1];
  if (isMarked(descriptor, handle->device)) return true;
  // Closed by a raw system call; the number may be a socket by now.
  if (atomic_compare_exchange_strong(&handleOf[descriptor], &place, 0)) handleUnpin(handle);
  return false;
}

bool handlesSweep(void) {
  bool found = false;
  const unsigned used = atomic_load(&usedDescriptors);
  for (unsigned descriptor = 0; descriptor < used; ++descriptor) {
    found |= atomic_load(&handleOf[descriptor]) != 0 && !handleIs((int)descriptor);
  }
  return found;
}

Handle* handlePin(int descriptor) {
  if (!handleIs(descriptor)) return NULL;
  const int index = atomic_load(&handleOf[descriptor]) - 1;
  if (index < 0) return NULL;
  Handle* handle = &handles[index];
  int uses = atomic_load(&handle->uses);
  while (uses > 0) {
    if (atomic_compare_exchange_weak(&handle->uses, &uses, uses + 1)) return handle;
  }
  return NULL;
}

void handleUnpin(Handle* handle) {
  int uses = atomic_load(&handle->uses);
  while (!atomic_compare_exchange_weak(&handle->uses, &uses, uses == 1 ? -1 : uses - 1)) {
  }
  if (uses != 1) return;
  streamClosed(handle);
  atomic_store(&handle->uses, 0);
}

int handleDescriptor(const Handle* handle, int descriptor) {
  const uint16_t place = (uint16_t)(handle - handles + 1);
  if (descriptor >= 0 && atomic_load(&handleOf[descriptor]) == place) return descriptor;
  const unsigned used = atomic_load(&usedDescriptors);
  for (unsigned other = 0; other < used; ++other) {
    if (atomic_load(&handleOf[other]) == place) return (int)other;
  }
  return -1;
}

void handleCopied(int descriptor, int copy) {
  if (descriptor == copy) return;
  handleClosed(copy);
  Handle* handle = handlePin(descriptor);
  if (!handle) return;
  if (copy < maxDescriptors) {
    give(copy, handle);  // The pin stays as the copy's use.
  } else {
    handleUnpin(handle);
  }
}

void handleClosed(int descriptor) {
  if (!handleIs(descriptor)) return;
  const int index = atomic_exchange(&handleOf[descriptor], 0) - 1;
  if (index >= 0) handleUnpin(&handles[index]);
}

void handleRangeClosed(unsigned first, unsigned last) {
  const unsigned used = atomic_load(&usedDescriptors);
  for (unsigned descriptor = first; descriptor < used && descriptor <= last; ++descriptor) {
    handleClosed((int)descriptor);
  }
}

uint32_t handleHighestPriority(const Device* device) {
  uint32_t highest = V4L2_PRIORITY_UNSET;
  for (int i = 0; i < maxHandles; ++i) {
    if (atomic_load(&handles[i].uses) > 0 && handles[i].device == device &&
        handles[i].priority > highest) {
      highest = handles[i].priority;
    }
  }
  return highest;
}
