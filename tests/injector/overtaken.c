// overtaken.c - takes a picture from a feed whose writer comes round as soon as the second piece of
// a frame is read: what is read piece by piece is torn every time, what is copied at once never is.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include "Painter.h"
#include "Real.h"

#define CHECK(condition)                                                      \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      exit(1);                                                                \
    }                                                                         \
  } while (0)

enum { width = 640, height = 480, capacity = width * height * 4, grey = 200, greyLuma = 188 };

static LLFrameHeader* header;
static int pieces;

ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset);

// The linker sends the frame path's calls here.
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset) {
  if (offset == 0) {
    pieces = 0;
  } else if (offset >= (off_t)LL_FRAME_DATA_OFFSET && ++pieces == 2) {
    header->slots[0].seq += 2;
    header->slots[1].seq += 2;
  }
  return __real_pread(descriptor, into, size, offset);
}

static void makeFeed(const char* path) {
  const size_t size = LL_FRAME_DATA_OFFSET + 2 * capacity;
  const int descriptor = open(path, O_RDWR);
  CHECK(descriptor >= 0 && ftruncate(descriptor, (off_t)size) == 0);
  uint8_t* file = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  CHECK(file != MAP_FAILED && close(descriptor) == 0);
  memset(file + LL_FRAME_DATA_OFFSET, grey, (size_t)2 * capacity);
  header = (LLFrameHeader*)(void*)file;
  header->magic = LL_FRAME_MAGIC;
  header->version = LL_FRAME_VERSION;
  header->slotCapacity = capacity;
  header->heartbeat = feedClock();
  for (int i = 0; i < 2; ++i) {
    header->slots[i] = (LLFrameSlot){
        .seq = 2, .timestamp = 1, .width = width, .height = height, .bytesPerRow = width * 4};
  }
}

// The luma in the middle of a picture of that size, 0 if the frame could not be had.
static int taken(Painter* painter, int wide, int high) {
  static uint8_t picture[1920 * 1080 * 3 / 2];
  const PictureFormat format = {V4L2_PIX_FMT_YUV420, wide, high, false};
  header->heartbeat = feedClock();
  paint(painter, LLCameraBack, &format, picture, NULL);
  return painter->published ? picture[(size_t)wide * (size_t)high / 2 + (size_t)wide / 2] : 0;
}

int main(void) {
  char path[] = "/tmp/lenslark-overtaken-XXXXXX";
  const int descriptor = mkstemp(path);
  CHECK(descriptor >= 0 && close(descriptor) == 0);
  makeFeed(path);
  setenv("LENSLARK_SHM", path, 1);
  unsetenv("LENSLARK_DEVICE_FEED");
  realResolve();
  kernelsSelect();
  feedConfigure();
  static Painter painter;
  CHECK(taken(&painter, 640, 480) == 0);
  painter.feed.copy = malloc(feedCopyBytes + feedPadding);
  CHECK(taken(&painter, 640, 480) == greyLuma);
  CHECK(taken(&painter, 1920, 1080) == greyLuma);
  free(painter.feed.copy);
  CHECK(unlink(path) == 0);
  return 0;
}
