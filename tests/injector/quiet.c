// quiet.c - a client for the tests that counts what happens in the process while it takes frames:
// allocations by its own definitions of them, system calls by the mark that it makes for a tracer.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "probe.h"

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void __libc_free(void* memory);

static atomic_int allocations;

void* malloc(size_t size) {
  atomic_fetch_add(&allocations, 1);
  return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  atomic_fetch_add(&allocations, 1);
  return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  atomic_fetch_add(&allocations, 1);
  return __libc_realloc(memory, size);
}

void free(void* memory) {
  atomic_fetch_add(&allocations, 1);
  __libc_free(memory);
}

static void take(int camera, int frames) {
  for (int i = 0; i < frames; ++i) {
    struct v4l2_buffer buffer = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
    CHECK(ioctl(camera, VIDIOC_DQBUF, &buffer) == 0);
    CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) == 0);
  }
}

int main(int count, char** arguments) {
  const int camera = open("/dev/video0", O_RDWR);
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = 640;
  format.fmt.pix.height = 480;
  CHECK(count == 2);
  memcpy(&format.fmt.pix.pixelformat, arguments[1], 4);
  CHECK(ioctl(camera, VIDIOC_S_FMT, &format) == 0);
  struct v4l2_requestbuffers request = {
      .count = 2, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera, VIDIOC_REQBUFS, &request) == 0);
  for (uint32_t i = 0; i < 2; ++i) {
    struct v4l2_buffer buffer = {
        .index = i, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
    CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) == 0);
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera, VIDIOC_STREAMON, &type) == 0);
  take(camera, 3);
  // The C library's own count as well, and so do the camera's.
  char* volatile made = strdup("counted");
  free(made);
  const int before = atomic_load(&allocations);
  CHECK(before >= 2);
  getppid();
  take(camera, 20);
  getppid();
  const int after = atomic_load(&allocations);
  if (after != before) {
    fprintf(stderr, "%d allocations for 20 frames\n", after - before);
    return 1;
  }
  return 0;
}
