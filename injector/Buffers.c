#include "Buffers.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Real.h"
#include "Stream.h"

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

enum { hugePage = 2 << 20 };

// What tells an application's mmap() which buffer is meant: far enough apart for any buffer.
static uint32_t offsetOf(uint32_t index) { return index * (uint32_t)buffersMaxLength; }

// Mappings that applications have of any device's buffers.
static atomic_uint mappingCount;

static size_t wholePages(size_t length) {
  const size_t page = (size_t)sysconf(_SC_PAGESIZE);
  return (length + page - 1) / page * page;
}

bool buffersKnow(uint32_t memory) {
  return memory == V4L2_MEMORY_MMAP || memory == V4L2_MEMORY_USERPTR;
}

static size_t roomLength(void) { return wholePages(feedRoomBytes); }

static uint8_t* sharedMemory(size_t length) {
  void* memory = realMmap(NULL, wholePages(length), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  return memory == MAP_FAILED ? NULL : memory;
}

int buffersAdd(Device* device, uint32_t memory, uint32_t count, uint32_t length) {
  if (memory == V4L2_MEMORY_USERPTR) {
    const int error = buffersReserveScratch(device, pictureSize(&device->format));
    if (error) return error;
  }
  const uint32_t before = device->bufferCount;
  for (uint32_t i = 0; i < count && device->bufferCount < deviceMaxBuffers; ++i) {
    Buffer buffer = {.length = length};
    if (memory == V4L2_MEMORY_MMAP) {
      buffer.memory = sharedMemory(length);
      if (!buffer.memory) break;
    }
    device->buffers[device->bufferCount++] = buffer;
  }
  if (device->bufferCount == before) return before == deviceMaxBuffers ? ENOBUFS : ENOMEM;
  device->memory = memory;
  return 0;
}

// True if the descriptor of an exported buffer was not closed behind our back.
static bool isExported(const Buffer* buffer) {
  struct stat status;
  return buffer->file > 0 && realFstatat(buffer->file, "", &status, AT_EMPTY_PATH) == 0 &&
         status.st_ino == buffer->fileNumber;
}

// Moves a buffer's memory into a file. Whoever is handed that cannot cut it short.
static int moveToFile(Buffer* buffer) {
  const size_t length = wholePages(buffer->length);
  const int file = memfd_create("lenslark-buffer", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  struct stat status;
  if (file < 0) return errno;
  const bool moved =
      ftruncate(file, (off_t)length) == 0 &&
      pwrite(file, buffer->memory, length, 0) == (ssize_t)length &&
      syscall(SYS_fcntl, file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0 &&
      realFstatat(file, "", &status, AT_EMPTY_PATH) == 0 &&
      realMmap(buffer->memory, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) !=
          MAP_FAILED;
  if (!moved) {
    realClose(file);
    return ENOMEM;
  }
  buffer->file = file;
  buffer->fileNumber = status.st_ino;
  return 0;
}

int buffersExport(Buffer* buffer, unsigned flags, int* descriptor) {
  const int saved = errno;
  int error = 0;
  if (!isExported(buffer)) error = buffer->mappings > 0 ? EBUSY : moveToFile(buffer);
  if (!error) {
    const int command = (flags & O_CLOEXEC) ? F_DUPFD_CLOEXEC : F_DUPFD;
    *descriptor = (int)syscall(SYS_fcntl, buffer->file, command, 0);
    if (*descriptor < 0) error = errno;
  }
  errno = saved;
  return error;
}

void buffersFree(Device* device) {
  for (uint32_t i = 0; i < device->bufferCount; ++i) {
    if (isExported(&device->buffers[i])) realClose(device->buffers[i].file);
    if (device->buffers[i].memory) {
      realMunmap(device->buffers[i].memory, wholePages(device->buffers[i].length));
    }
  }
  if (device->scratch) realMunmap(device->scratch, wholePages(2 * device->scratchSize));
  if (device->painter.feed.room) realMunmap(device->painter.feed.room, roomLength());
  device->painter.feed.room = NULL;
  feedForget(&device->painter.feed);
  for (int i = 0; i < deviceMaxMappings; ++i) {
    if (device->mappings[i].address) atomic_fetch_sub(&mappingCount, 1);
    device->mappings[i] = (Mapping){0};
  }
  device->scratch = NULL;
  device->scratchSize = 0;
  device->bufferCount = 0;
  device->memory = 0;
  device->last = NULL;
  device->owner = NULL;
  device->reading = false;
}

bool buffersAreMapped(const Device* device) {
  for (uint32_t i = 0; i < device->bufferCount; ++i) {
    if (device->buffers[i].mappings > 0) return true;
  }
  return false;
}

int buffersReserveScratch(Device* device, size_t size) {
  if (device->scratch) return 0;
  device->scratch = sharedMemory(2 * size);
  if (!device->scratch) return ENOMEM;
  device->scratchSize = size;
  return 0;
}

void buffersReserveRoom(Device* device) {
  if (device->painter.feed.room) return;
  const size_t length = roomLength();
  uint8_t* memory = realMmap(NULL, length + hugePage, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return;
  const size_t before = (hugePage - (uintptr_t)memory % hugePage) % hugePage;
  if (before > 0) realMunmap(memory, before);
  if (before < hugePage) realMunmap(memory + before + length, hugePage - before);
  // The kernel pins the pages that it copies to: one is sooner done than many.
  madvise(memory + before, length, MADV_HUGEPAGE);
  device->painter.feed.room = memory + before;
}

// The kernel pins a user pointer's pages when it is queued, and refuses those it cannot write.
static bool isWritable(uint64_t address, size_t length) {
  const uint64_t page = (uint64_t)sysconf(_SC_PAGESIZE);
  const uint64_t first = address / page * page;
  const uint64_t span = address - first + length;
  if (span + page < span || first + span < first) return false;
  const int saved = errno;
  const int outcome =
      madvise((void*)(uintptr_t)first, wholePages((size_t)span), MADV_POPULATE_WRITE);
  // What may not be written is invalid, but so is the advice itself to older kernels.
  const bool refused =
      outcome != 0 && (errno == EFAULT || errno == ENOMEM ||
                       (errno == EINVAL && madvise(NULL, 0, MADV_POPULATE_WRITE) == 0));
  errno = saved;
  return !refused;
}

int buffersAdopt(Device* device, Buffer* buffer, const struct v4l2_buffer* request) {
  if (device->memory != V4L2_MEMORY_USERPTR) return 0;
  if (request->length != 0 && request->length < pictureSize(&device->format)) return EINVAL;
  const uint32_t length = request->length ? request->length : buffer->length;
  if (!isWritable(request->m.userptr, length)) return EFAULT;
  buffer->address = request->m.userptr;
  buffer->length = length;
  return 0;
}

void buffersDescribe(const Device* device, uint32_t index, struct v4l2_buffer* into) {
  const Buffer* buffer = &device->buffers[index];
  memset(into, 0, sizeof(*into));
  into->index = index;
  into->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  into->memory = device->memory;
  into->length = buffer->length;
  into->bytesused = buffer->bytesUsed;
  into->field = V4L2_FIELD_NONE;
  into->sequence = buffer->sequence;
  into->timestamp = buffer->timestamp;
  into->flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_EOF;
  if (buffer->mappings > 0) into->flags |= V4L2_BUF_FLAG_MAPPED;
  if (buffer->prepared) into->flags |= V4L2_BUF_FLAG_PREPARED;
  if (buffer->state != bufferIdle) {
    into->flags |= V4L2_BUF_FLAG_QUEUED;
    into->bytesused = 0;
    into->sequence = 0;
    into->timestamp = (struct timeval){0, 0};
  }
  if (device->memory == V4L2_MEMORY_MMAP) {
    into->m.offset = offsetOf(index);
  } else {
    into->m.userptr = (unsigned long)buffer->address;
  }
}

static void noteMapping(Device* device, void* address, uint32_t index) {
  for (int i = 0; i < deviceMaxMappings; ++i) {
    if (device->mappings[i].address) continue;
    device->mappings[i] = (Mapping){address, index};
    ++device->buffers[index].mappings;
    atomic_fetch_add(&mappingCount, 1);
    return;
  }
}

// A second mapping of the same shared pages, which mremap() makes of a length of zero.
static void* duplicate(const Buffer* buffer, void* address, size_t length, int protection,
                       int flags) {
  void* copy = (flags & MAP_FIXED)
                   ? mremap(buffer->memory, 0, length, MREMAP_MAYMOVE | MREMAP_FIXED, address)
                   : mremap(buffer->memory, 0, length, MREMAP_MAYMOVE);
  if (copy != MAP_FAILED && protection != (PROT_READ | PROT_WRITE)) {
    mprotect(copy, length, protection);
  }
  return copy;
}

void* streamMap(Handle* handle, void* address, size_t length, int protection, int flags,
                off_t offset) {
  Device* device = handle->device;
  void* mapped = MAP_FAILED;
  int error = EINVAL;
  pthread_mutex_lock(&device->lock);
  const off_t index = offset / buffersMaxLength;
  const bool shared = (flags & MAP_SHARED) != 0;
  if (device->memory == V4L2_MEMORY_MMAP && shared && offset >= 0 &&
      offset % buffersMaxLength == 0 && index < (off_t)device->bufferCount && length > 0 &&
      length <= wholePages(device->buffers[index].length)) {
    mapped = duplicate(&device->buffers[index], address, wholePages(length), protection, flags);
    error = errno;
    if (mapped != MAP_FAILED) noteMapping(device, mapped, (uint32_t)index);
  }
  pthread_mutex_unlock(&device->lock);
  if (mapped == MAP_FAILED) errno = error;
  return mapped;
}

void streamUnmapped(const void* address, size_t length) {
  // Nearly every program's every call ends here.
  if (atomic_load_explicit(&mappingCount, memory_order_relaxed) == 0 || !handlesAreOurs()) return;
  for (int d = 0; d < deviceCount; ++d) {
    Device* device = deviceAt(d);
    pthread_mutex_lock(&device->lock);
    for (int i = 0; i < deviceMaxMappings; ++i) {
      Mapping* mapping = &device->mappings[i];
      const uintptr_t at = (uintptr_t)mapping->address;
      if (!at || at < (uintptr_t)address || at - (uintptr_t)address >= length) continue;
      --device->buffers[mapping->buffer].mappings;
      atomic_fetch_sub(&mappingCount, 1);
      *mapping = (Mapping){0};
    }
    pthread_mutex_unlock(&device->lock);
  }
}
