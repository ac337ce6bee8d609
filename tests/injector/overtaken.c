// overtaken.c - takes a picture from a feed whose writer comes round as soon as the second piece of
// a frame is read: what is read piece by piece is torn every time, what is copied at once never is.
// Then from one that is cut short at that moment, which must not end the program.
#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <sys/uio.h>
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

enum {
  width = 640,
  height = 480,
  capacity = width * height * 4,
  fileSize = LL_FRAME_DATA_OFFSET + 2 * capacity,
  grey = 200,
  greyLuma = 188
};

static LLFrameHeader* header;
static int file;
static int pieces;
static bool copiesAreForbidden, isCutShort;

static void setLength(size_t length) { CHECK(ftruncate(file, (off_t)length) == 0); }

static void beginPiece(void) {
  if (++pieces != 2) return;
  if (isCutShort) {
    setLength(LL_FRAME_DATA_OFFSET);
    return;
  }
  header->slots[0].seq += 2;
  header->slots[1].seq += 2;
}

ssize_t __real_pread(int descriptor, void* into, size_t size, off_t offset);
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset);
ssize_t __real_process_vm_writev(pid_t process, const struct iovec* local, unsigned long localCount,
                                 const struct iovec* remote, unsigned long remoteCount,
                                 unsigned long flags);
ssize_t __wrap_process_vm_writev(pid_t process, const struct iovec* local, unsigned long localCount,
                                 const struct iovec* remote, unsigned long remoteCount,
                                 unsigned long flags);

// The linker sends the frame path's calls here.
ssize_t __wrap_pread(int descriptor, void* into, size_t size, off_t offset) {
  if (offset == 0) pieces = 0;
  if (offset >= (off_t)LL_FRAME_DATA_OFFSET) beginPiece();
  return __real_pread(descriptor, into, size, offset);
}

ssize_t __wrap_process_vm_writev(pid_t process, const struct iovec* local, unsigned long localCount,
                                 const struct iovec* remote, unsigned long remoteCount,
                                 unsigned long flags) {
  if (copiesAreForbidden) {
    errno = EPERM;
    return -1;
  }
  beginPiece();
  return __real_process_vm_writev(process, local, localCount, remote, remoteCount, flags);
}

void __real_feedPrefetch(Feed* feed, size_t size);
void __wrap_feedPrefetch(Feed* feed, size_t size);

// What is read in place is read without a call that could be met, but for this one.
void __wrap_feedPrefetch(Feed* feed, size_t size) {
  if (feed->entered && !feed->copied) beginPiece();
  __real_feedPrefetch(feed, size);
}

static void blockSigbus(void) {
  sigset_t bus;
  CHECK(sigemptyset(&bus) == 0 && sigaddset(&bus, SIGBUS) == 0);
  CHECK(pthread_sigmask(SIG_BLOCK, &bus, NULL) == 0);
}

static void makeFeed(const char* path) {
  file = open(path, O_RDWR);
  CHECK(file >= 0);
  setLength(fileSize);
  void* mapped = mmap(NULL, fileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  CHECK(mapped != MAP_FAILED);
  header = mapped;
  header->magic = LL_FRAME_MAGIC;
  header->version = LL_FRAME_VERSION;
  header->slotCapacity = capacity;
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

static void takeThrough(const char* means) {
  static Painter painter;
  printf("through %s\n", means);
  memset((uint8_t*)header + LL_FRAME_DATA_OFFSET, grey, (size_t)2 * capacity);
  CHECK(taken(&painter, 640, 480) == 0);
  painter.feed.room = malloc(feedRoomBytes);
  CHECK(taken(&painter, 640, 480) == greyLuma);
  CHECK(taken(&painter, 1920, 1080) == greyLuma);
  isCutShort = true;
  CHECK(taken(&painter, 640, 480) == 0);
  isCutShort = false;
  setLength(fileSize);
  CHECK(taken(&painter, 640, 480) != 0);
  free(painter.feed.room);
  painter.feed.room = NULL;
  feedForget(&painter.feed);
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
  takeThrough("the mapping, in place");
  blockSigbus();
  takeThrough("the mapping, copied");
  copiesAreForbidden = true;
  takeThrough("pread()");
  CHECK(unlink(path) == 0 && close(file) == 0);
  return 0;
}
