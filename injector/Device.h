// Device.h - the two cameras, and the descriptors that are open on them.
//
// A camera's state is shared by all descriptors, as a driver's is. A Handle is one open file; dup()
// gives it a second descriptor. The descriptor itself is a timer that the kernel makes readable
// when a frame is due, so poll(), select(), epoll and O_NONBLOCK need no help.
//
// A descriptor carries a mark that the kernel keeps with the open file. By it a camera is told from
// what took over its number after a close that went around this library, and known again after
// exec() and in a process that was handed the descriptor.
//
// Threads: any. Each Device has one lock, over its bookkeeping only: no pixel moves under it. A
// handle in use is pinned, so that closing it elsewhere frees it when the call is over.
// After fork() the child has its own copy of everything but the timer and the buffers' memory;
// between vfork() and exec() nothing is touched, since that memory is the parent's.
// Owns: all of it static, but for the buffers' memory (Stream.h).
#pragma once

#include <linux/videodev2.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdbool.h>

#include "Painter.h"

enum { deviceCount = 2, deviceMaxBuffers = 32, deviceMaxMappings = 64 };

typedef struct Buffer {
  uint8_t* memory;   ///< Shared memory, NULL for a user pointer.
  int file;          ///< Descriptor of the memory if it was exported, else 0.
  ino_t fileNumber;  ///< Of that file.
  uint64_t address;  ///< The application's, for a user pointer.
  uint32_t length;
  uint32_t mappings;
  enum { bufferIdle, bufferQueued, bufferPainting } state;
  bool prepared;
  struct timeval timestamp;
  uint32_t sequence, bytesUsed;
} Buffer;

typedef struct Mapping {
  void* address;
  uint32_t buffer;
} Mapping;

struct Handle;

typedef struct Device {
  // Constant after deviceConfigure().
  int index;
  const char* name;
  LLCamera camera;

  pthread_mutex_t lock;

  // Guarded by the lock.
  PictureFormat format;
  struct v4l2_fract interval;
  struct Handle* owner;  ///< Who has buffers or reads.
  bool reading;          ///< The owner uses read().
  uint32_t memory;       ///< V4L2_MEMORY_MMAP or _USERPTR, 0 without buffers.
  uint32_t bufferCount;
  Buffer buffers[deviceMaxBuffers];
  uint32_t queue[deviceMaxBuffers];  ///< Indices, first in first out.
  uint32_t queued;
  Mapping mappings[deviceMaxMappings];
  bool streaming;
  uint32_t waiters;      ///< Threads that wait for a frame.
  uint32_t generation;   ///< Counts starts and stops.
  uint64_t start, next;  ///< When the first frame was and the next is due.
  uint32_t sequence;     ///< Of the next frame at least.
  uint64_t published;    ///< When the frame handed out last was published, 0 if there was none.
  const uint8_t* last;   ///< The picture painted last.
  uint8_t* scratch;      ///< Two pictures, where the application's memory is not painted directly.
  size_t scratchSize;    ///< Of one of them.
  size_t readOffset;     ///< Bytes of the current picture that read() has handed out.

  // Belongs to the thread that set `painting` under the lock.
  atomic_bool painting;
  Painter painter;
} Device;

typedef struct Handle {
  atomic_int uses;  ///< 0 free, -1 being closed, else descriptors and calls under way.
  Device* device;
  int access;  ///< O_RDONLY, O_WRONLY or O_RDWR.
  uint32_t priority;
} Handle;

/// Prepares both cameras. Called by the constructor.
void deviceConfigure(void);

/// Recognises the cameras that the program was started with. Called by the constructor.
void deviceAdoptRedirected(void);

/// The camera with this /dev/videoN number, NULL if it is none of ours.
Device* deviceWithNumber(long number);

/// The N of this camera's /dev/videoN: the lowest that no real device has.
int deviceNumber(const Device* device);

Device* deviceAt(int index);

/// Opens a camera with open()'s flags. The descriptor, or -1 with errno.
int handleOpen(Device* device, int flags);

/// The handle behind a descriptor, pinned, or NULL if the descriptor is no camera.
Handle* handlePin(int descriptor);
void handleUnpin(Handle* handle);

/// True if the descriptor is a camera. Costs one load for any other.
bool handleIs(int descriptor);

/// As handlePin(), for a descriptor that was opened before this program began or by another.
Handle* handleAdopt(int descriptor);

/// A descriptor of this handle: the one given, unless it was closed meanwhile and its number may be
/// something else. -1 if there is none any more.
int handleDescriptor(const Handle* handle, int descriptor);

/// Notes that `copy` refers to the same open file as `descriptor`, if that is a camera.
void handleCopied(int descriptor, int copy);

/// Notes that a descriptor was closed, or was handed out by the kernel for something else.
void handleClosed(int descriptor);

/// Notes that all descriptors in a range were closed.
void handleRangeClosed(unsigned first, unsigned last);

/// Finds the descriptors that were closed without notice. True if there was one.
bool handlesSweep(void);

/// False between vfork() and exec(), when this memory is the parent's and must stay as it is.
bool handlesAreOurs(void);

/// The highest priority that any handle of the device has.
uint32_t handleHighestPriority(const Device* device);
