// copying_client.c - the peer of camera_client.c: a program that reads a feed of 1280x960 itself,
// with one safe copy of each frame and libyuv, 30 times a second: `copying-client FRAMES FEED`.
// Prints the CPU nanoseconds of each. Between two frames it sleeps as an application does, so that
// it finds its caches as cold.
#include <fcntl.h>
#include <libyuv.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include "lenslark/frame_file.h"

enum { width = 1280, height = 960, luma = width * height, period = 1000000000 / 30 };

static uint8_t frame[luma * 4];
static uint8_t picture[luma * 3 / 2];

static void fail(const char* what) {
  perror(what);
  exit(1);
}

static void take(int feed) {
  LLFrameHeader header;
  if (pread(feed, &header, sizeof(header), 0) != (ssize_t)sizeof(header)) fail("the header");
  const off_t at = (off_t)(LL_FRAME_DATA_OFFSET + (header.frontSlot & 1) * header.slotCapacity);
  // pread() copies what another process may cut short at any moment.
  if (pread(feed, frame, sizeof(frame), at) != (ssize_t)sizeof(frame)) fail("the frame");
  ARGBToI420(frame, width * 4, picture, width, picture + luma, width / 2, picture + luma + luma / 4,
             width / 2, width, height);
}

static long long cpuNanoseconds(void) {
  struct timespec spent;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
  return (long long)spent.tv_sec * 1000000000 + spent.tv_nsec;
}

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const int feed = open(arguments[2], O_RDONLY | O_CLOEXEC);
  if (feed < 0) fail(arguments[2]);
  take(feed);
  struct timespec due;
  clock_gettime(CLOCK_MONOTONIC, &due);
  long long before = cpuNanoseconds();
  for (int i = atoi(arguments[1]); i > 0; --i) {
    due.tv_nsec += period;
    due.tv_sec += due.tv_nsec / 1000000000;
    due.tv_nsec %= 1000000000;
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, NULL);
    take(feed);
    const long long spent = cpuNanoseconds();
    printf("%lld\n", spent - before);
    before = spent;
  }
  return 0;
}
