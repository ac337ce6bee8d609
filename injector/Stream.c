#include "Stream.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include "Buffers.h"
#include "UserMemory.h"

static uint64_t intervalOf(const Device* device) {
  return UINT64_C(1000000000) * device->interval.numerator / device->interval.denominator;
}

static void setTimer(int descriptor, uint64_t at) {
  const struct itimerspec when = {
      {0, 0}, {(time_t)(at / UINT64_C(1000000000)), (long)(at % UINT64_C(1000000000))}};
  timerfd_settime(descriptor, TFD_TIMER_ABSTIME, &when, NULL);
}

static void disarm(int descriptor) { setTimer(descriptor, 0); }
static void fire(int descriptor) { setTimer(descriptor, 1); }

// Lets the descriptor turn readable when the next frame is due, if there is a buffer for it. It may
// have been closed while the lock was released.
static void arm(const Device* device, int descriptor) {
  if (device->owner) descriptor = handleDescriptor(device->owner, descriptor);
  if (device->streaming && (device->reading || device->queued > 0)) {
    setTimer(descriptor, device->next);
  } else {
    disarm(descriptor);
  }
}

static void start(Device* device) {
  buffersReserveRoom(device);
  device->streaming = true;
  ++device->generation;
  device->sequence = 0;
  device->start = device->next = feedClock();
  device->last = NULL;
  device->published = 0;
}

// Moves the moments at which frames are due towards those at which the feed publishes, a little at
// a time: a feed that keeps the same time is then shown some milliseconds after, instead of up to a
// whole frame.
static void followFeed(Device* device) {
  const uint64_t interval = intervalOf(device);
  const uint64_t step = interval / 32;
  const uint64_t wanted = UINT64_C(3000000);  // More than a writer's timer is usually late.
  const uint64_t published = device->painter.published;
  const uint64_t before = device->published;
  device->published = published;
  const bool keepsTime = before != 0 && published > before &&
                         published - before > interval - interval / 8 &&
                         published - before < interval + interval / 8;
  if (!keepsTime || published > device->next || device->next - published > interval) return;
  const uint64_t age = device->next - published;
  if (age > wanted) {
    device->start -= age - wanted < step ? age - wanted : step;
  } else if (age < wanted / 2) {
    device->start += wanted - age < step ? wanted - age : step;
  }
}

// Numbers the frame that is handed out now and moves on to the next. An application that is late
// finds as many frames as it had buffers queued, as a driver would have filled them; what was
// missed beyond that is counted and left out.
static uint32_t advance(Device* device, uint64_t now) {
  followFeed(device);
  const uint64_t interval = intervalOf(device);
  const uint64_t tick = now > device->start ? (now - device->start) / interval : 0;
  const uint32_t number =
      tick > (uint64_t)device->sequence + device->queued + 1 ? (uint32_t)tick : device->sequence;
  device->sequence = number + 1;
  device->next = device->start + (uint64_t)device->sequence * interval;
  return number;
}

void streamOpened(Handle* handle, int descriptor) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  if (!device->owner) setTimer(descriptor, feedClock() + intervalOf(device));
  pthread_mutex_unlock(&device->lock);
}

// Waits for a picture that another thread is painting, which takes about a millisecond. The lock is
// held before and after.
static void awaitPainter(Device* device) {
  while (atomic_load(&device->painting)) {
    pthread_mutex_unlock(&device->lock);
    nanosleep(&(struct timespec){0, 100000}, NULL);
    pthread_mutex_lock(&device->lock);
  }
}

// True if another open file has the device, or this one reads where buffers are meant.
static bool isTaken(const Device* device, const Handle* handle) {
  return device->owner && (device->owner != handle || device->reading);
}

static void stop(Device* device) {
  device->streaming = false;
  ++device->generation;
  device->queued = 0;
  for (uint32_t i = 0; i < device->bufferCount; ++i) device->buffers[i].state = bufferIdle;
}

void streamClosed(Handle* handle) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  if (device->owner == handle) {
    stop(device);
    awaitPainter(device);
    buffersFree(device);
  }
  pthread_mutex_unlock(&device->lock);
}

int streamRequest(Handle* handle, int descriptor, struct v4l2_requestbuffers* request) {
  Device* device = handle->device;
  const uint32_t memory = request->memory;
  const uint32_t count = request->count;
  if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !buffersKnow(memory)) return EINVAL;
  pthread_mutex_lock(&device->lock);
  int error = 0;
  if (!isTaken(device, handle)) {
    stop(device);
    awaitPainter(device);
  }
  // Whatever another thread did meanwhile.
  if (isTaken(device, handle)) {
    error = EBUSY;
  } else {
    stop(device);
    buffersFree(device);
    if (count > 0) {
      error = buffersAdd(device, memory, count, (uint32_t)pictureSize(&device->format));
    }
    if (device->bufferCount > 0) device->owner = handle;
    setTimer(descriptor, feedClock() + intervalOf(device));
    request->count = device->bufferCount;
  }
  pthread_mutex_unlock(&device->lock);
  request->capabilities = buffersCapabilities;
  request->flags = 0;
  return error;
}

int streamCreate(Handle* handle, int descriptor, struct v4l2_create_buffers* create) {
  Device* device = handle->device;
  const struct v4l2_pix_format* pix = &create->format.fmt.pix;
  create->capabilities = buffersCapabilities;
  create->flags = 0;
  memset(create->reserved, 0, sizeof(create->reserved));
  if (create->format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || !buffersKnow(create->memory)) {
    return EINVAL;
  }
  pthread_mutex_lock(&device->lock);
  int error = 0;
  const uint32_t before = device->bufferCount;
  create->index = before;
  if (create->count == 0) {
    // Only asks what there is.
  } else if (isTaken(device, handle)) {
    error = EBUSY;
  } else if (pix->sizeimage < pictureSize(&device->format) || pix->sizeimage > buffersMaxLength ||
             (before > 0 && device->memory != create->memory)) {
    error = EINVAL;
  } else {
    if (before == 0) disarm(descriptor);
    error = buffersAdd(device, create->memory, create->count, pix->sizeimage);
    create->count = device->bufferCount - before;
    if (device->bufferCount > 0) device->owner = handle;
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

// The buffer that a request means, or the error that it deserves.
static int find(Device* device, const struct v4l2_buffer* request, Buffer** found) {
  if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || request->index >= device->bufferCount) {
    return EINVAL;
  }
  *found = &device->buffers[request->index];
  return 0;
}

int streamQuery(Handle* handle, struct v4l2_buffer* request) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  Buffer* buffer = NULL;
  const int error = find(device, request, &buffer);
  if (!error) buffersDescribe(device, request->index, request);
  pthread_mutex_unlock(&device->lock);
  return error;
}

int streamExport(Handle* handle, struct v4l2_exportbuffer* request) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  awaitPainter(device);  // Its memory may be what moves.
  int error = 0;
  if (isTaken(device, handle)) {
    error = EBUSY;
  } else if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE || request->plane != 0 ||
             (request->flags & ~(uint32_t)(O_CLOEXEC | O_ACCMODE)) != 0 ||
             device->memory != V4L2_MEMORY_MMAP || request->index >= device->bufferCount) {
    error = EINVAL;
  } else {
    memset(request->reserved, 0, sizeof(request->reserved));
    error = buffersExport(&device->buffers[request->index], request->flags, &request->fd);
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

static int accept(Device* device, Handle* handle, const struct v4l2_buffer* request,
                  Buffer** found) {
  if (isTaken(device, handle)) return EBUSY;
  const int error = find(device, request, found);
  if (error) return error;
  if (request->memory != device->memory || (*found)->state != bufferIdle) return EINVAL;
  if (request->flags & V4L2_BUF_FLAG_REQUEST_FD) return EBADR;
  // What was prepared stays as it was then.
  return (*found)->prepared ? 0 : buffersAdopt(device, *found, request);
}

int streamPrepare(Handle* handle, struct v4l2_buffer* request) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  Buffer* buffer = NULL;
  int error = accept(device, handle, request, &buffer);
  if (!error && buffer->prepared) error = EINVAL;
  if (!error) {
    buffer->prepared = true;
    buffersDescribe(device, request->index, request);
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

int streamQueue(Handle* handle, int descriptor, struct v4l2_buffer* request) {
  Device* device = handle->device;
  pthread_mutex_lock(&device->lock);
  Buffer* buffer = NULL;
  const int error = accept(device, handle, request, &buffer);
  if (!error) {
    buffer->prepared = false;
    buffer->state = bufferQueued;
    device->queue[device->queued++] = request->index;
    if (device->queued == 1 && !atomic_load(&device->painting)) arm(device, descriptor);
    buffersDescribe(device, request->index, request);
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

int streamOn(Handle* handle, int descriptor, uint32_t type) {
  Device* device = handle->device;
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  pthread_mutex_lock(&device->lock);
  // Another thread's picture may be left of a stream that ended: there is one painter.
  if (!device->streaming) awaitPainter(device);
  int error = 0;
  if (isTaken(device, handle)) {
    error = EBUSY;
  } else if (device->bufferCount == 0) {
    error = EINVAL;
  } else if (!device->streaming) {
    start(device);
    arm(device, descriptor);
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

int streamOff(Handle* handle, int descriptor, uint32_t type) {
  Device* device = handle->device;
  if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  pthread_mutex_lock(&device->lock);
  int error = 0;
  if (isTaken(device, handle)) {
    error = EBUSY;
  } else if (device->owner) {
    stop(device);
    for (uint32_t i = 0; i < device->bufferCount; ++i) device->buffers[i].prepared = false;
    if (device->waiters > 0) {
      fire(descriptor);
    } else {
      disarm(descriptor);
    }
    awaitPainter(device);
  }
  pthread_mutex_unlock(&device->lock);
  return error;
}

// Waits until a frame is due. The timer's one expiration goes to one thread, which then owns the
// painter until it arms the timer again. Called and left with the lock held.
static int awaitFrame(Handle* handle, int descriptor) {
  Device* device = handle->device;
  const uint32_t generation = device->generation;
  for (;;) {
    ++device->waiters;
    pthread_mutex_unlock(&device->lock);
    uint64_t expirations;
    descriptor = handleDescriptor(handle, descriptor);
    // Not the next read(): one that knows cameras too would bring the call back here.
    const ssize_t got = syscall(SYS_read, descriptor, &expirations, sizeof(expirations));
    const int error = errno;
    pthread_mutex_lock(&device->lock);
    --device->waiters;
    const bool painting = atomic_load(&device->painting);
    if (!device->streaming || device->generation != generation) {
      // The expiration was meant for others who wait, or for a stream that was started since.
      if (device->waiters > 0) {
        fire(handleDescriptor(handle, descriptor));
      } else if (device->streaming && !painting) {
        arm(device, descriptor);
      }
      return EINVAL;
    }
    if (got < 0) return error;
    // Whoever paints arms the timer when that is done.
    if (!painting && (device->reading || device->queued > 0)) return 0;
  }
}

// Paints into `out` with the lock released, and copies that to `copy` unless it is NULL. False if
// that is no memory of the application's. Called and left with the lock held.
static bool paintUnlocked(Device* device, uint8_t* out, void* copy) {
  const PictureFormat format = device->format;
  const uint8_t* last = device->last;
  atomic_store(&device->painting, true);
  pthread_mutex_unlock(&device->lock);
  paint(&device->painter, device->camera, &format, out, last);
  const bool copied = !copy || copyToUser(copy, out, pictureSize(&format));
  pthread_mutex_lock(&device->lock);
  atomic_store(&device->painting, false);
  return copied;
}

// Where the next picture goes that the application's memory gets as a copy.
static uint8_t* otherScratch(const Device* device) {
  return device->last == device->scratch ? device->scratch + device->scratchSize : device->scratch;
}

static struct timeval timeval(uint64_t nanoseconds) {
  return (struct timeval){(time_t)(nanoseconds / UINT64_C(1000000000)),
                          (suseconds_t)(nanoseconds % UINT64_C(1000000000) / 1000)};
}

int streamDequeue(Handle* handle, int descriptor, struct v4l2_buffer* request) {
  Device* device = handle->device;
  if (request->type != V4L2_BUF_TYPE_VIDEO_CAPTURE) return EINVAL;
  pthread_mutex_lock(&device->lock);
  int error = 0;
  if (isTaken(device, handle)) {
    error = EBUSY;
  } else if (!device->streaming) {
    error = EINVAL;
  } else {
    error = awaitFrame(handle, descriptor);
  }
  if (error) {
    pthread_mutex_unlock(&device->lock);
    return error;
  }
  const uint32_t index = device->queue[0];
  --device->queued;
  memmove(device->queue, device->queue + 1, device->queued * sizeof(device->queue[0]));
  Buffer* buffer = &device->buffers[index];
  buffer->state = bufferPainting;
  const uint32_t generation = device->generation;
  const uint64_t now = feedClock();
  uint8_t* out = buffer->memory ? buffer->memory : otherScratch(device);
  void* copy = buffer->memory ? NULL : (void*)(uintptr_t)buffer->address;
  const bool whole = paintUnlocked(device, out, copy);
  if (generation != device->generation) {
    pthread_mutex_unlock(&device->lock);
    return EINVAL;
  }
  buffer->state = bufferIdle;
  buffer->bytesUsed = (uint32_t)pictureSize(&device->format);
  buffer->timestamp = timeval(now);
  buffer->sequence = advance(device, now);
  device->last = out;
  buffersDescribe(device, index, request);
  if (!whole) request->flags |= V4L2_BUF_FLAG_ERROR;
  arm(device, descriptor);
  pthread_mutex_unlock(&device->lock);
  return 0;
}

// Copies bytes of the current picture with the lock released. Called and left with the lock held.
static bool handOut(Device* device, void* into, size_t size) {
  const uint8_t* from = device->last + device->readOffset;
  atomic_store(&device->painting, true);
  pthread_mutex_unlock(&device->lock);
  const bool copied = copyToUser(into, from, size);
  pthread_mutex_lock(&device->lock);
  atomic_store(&device->painting, false);
  return copied;
}

// Makes the handle the device's reader. Called with the lock held.
static int startReading(Device* device, Handle* handle, size_t size) {
  if (device->owner == handle && device->reading) return 0;
  // Some programs (zbarcam is one) ask for buffers, use none of them and read whole pictures.
  if (device->owner == handle && !device->streaming && device->queued == 0 &&
      !buffersAreMapped(device) && size >= pictureSize(&device->format)) {
    buffersFree(device);
  }
  if (device->owner) return EBUSY;
  const int error = buffersReserveScratch(device, pictureSize(&device->format));
  if (error) return error;
  device->owner = handle;
  device->reading = true;
  device->readOffset = 0;
  start(device);
  return 0;
}

ssize_t streamRead(Handle* handle, int descriptor, void* into, size_t size) {
  Device* device = handle->device;
  if (handle->access != O_RDONLY && handle->access != O_RDWR) {
    errno = EBADF;
    return -1;
  }
  if (size == 0) return 0;
  pthread_mutex_lock(&device->lock);
  awaitPainter(device);  // Another thread that reads.
  const bool starts = !device->reading;
  int error = startReading(device, handle, size);
  if (!error && starts) arm(device, descriptor);
  const size_t whole = pictureSize(&device->format);
  if (!error && device->readOffset == 0) {
    error = awaitFrame(handle, descriptor);
    if (!error) {
      const uint64_t now = feedClock();
      uint8_t* out = otherScratch(device);
      paintUnlocked(device, out, NULL);
      device->last = out;
      advance(device, now);
    }
  }
  if (error) {
    pthread_mutex_unlock(&device->lock);
    errno = error;
    return -1;
  }
  const size_t rest = whole - device->readOffset;
  const size_t part = size < rest ? size : rest;
  const bool copied = handOut(device, into, part);
  if (copied) device->readOffset = part == rest ? 0 : device->readOffset + part;
  if (!copied || device->readOffset == 0) {
    device->readOffset = 0;
    arm(device, descriptor);
  } else {
    // The rest of the picture is there to be read.
    fire(handleDescriptor(handle, descriptor));
  }
  pthread_mutex_unlock(&device->lock);
  if (copied) return (ssize_t)part;
  errno = EFAULT;
  return -1;
}
