// Any header at the path of a camera's feed, in a file of any length: a picture is painted, from it
// or the placeholder. The input is the file's length, the format asked for, whether its pixels are
// read in place, and then the file's beginning; magic and heartbeat are put right, or nothing
// further would be looked at.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "Painter.h"
#include "Real.h"

enum { width = 64, height = 48, longest = 1 << 25 };

static char path[64];

static void removeFeed(void) { unlink(path); }

static void prepare(void) {
  if (path[0]) return;
  snprintf(path, sizeof(path), "/dev/shm/lenslark-fuzz-camera-%d.shm", (int)getpid());
  atexit(removeFeed);
  setenv("LENSLARK_SHM", path, 1);
  kernelsSelect();
  feedConfigure();
  realResolve();
  // The fuzzer's own handler would keep pixels from being read in place.
  signal(SIGBUS, SIG_DFL);
}

// A thread that blocks the signal reads copies.
static void readInPlace(bool yes) {
  sigset_t bus;
  sigemptyset(&bus);
  sigaddset(&bus, SIGBUS);
  pthread_sigmask(yes ? SIG_UNBLOCK : SIG_BLOCK, &bus, NULL);
}

static void plant(uint32_t length, const uint8_t* bytes, size_t size) {
  const int file = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0 || pwrite(file, bytes, size, 0) != (ssize_t)size) abort();
  const uint32_t magic = LL_FRAME_MAGIC;
  const uint64_t heartbeat = feedClock();
  if (pwrite(file, &magic, sizeof(magic), offsetof(LLFrameHeader, magic)) < 0 ||
      pwrite(file, &heartbeat, sizeof(heartbeat), offsetof(LLFrameHeader, heartbeat)) < 0 ||
      ftruncate(file, (off_t)(length % longest)) != 0) {
    abort();
  }
  close(file);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const uint32_t formats[] = {V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUYV,
                                     V4L2_PIX_FMT_RGB24, V4L2_PIX_FMT_BGR32};
  static Painter painter;
  uint32_t length;
  if (size < sizeof(length) + 1) return 0;
  memcpy(&length, data, sizeof(length));
  const PictureFormat format = {formats[data[sizeof(length)] % 5], width, height,
                                data[sizeof(length)] & 0x80};
  prepare();
  readInPlace(data[sizeof(length)] & 0x40);
  plant(length, data + sizeof(length) + 1, size - sizeof(length) - 1);
  // To the byte, so that the sanitizer sees what is written behind it.
  uint8_t* picture = malloc(pictureSize(&format));
  if (!picture) abort();
  paint(&painter, LLCameraBack, &format, picture, NULL);
  free(picture);
  return 0;
}
