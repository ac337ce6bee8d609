// bench.c - what painting a picture costs, beside one safe copy of the frame and libyuv's
// conversion of it: `bench-injector FEED [WIDTH HEIGHT]`, the feed having frames of that size.
// CPU time of the calling thread, the best of five rounds.
#include <fcntl.h>
#include <libyuv.h>
#include <linux/videodev2.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include "Painter.h"
#include "Real.h"

enum { rounds = 5, frames = 200 };

static double cpuMilliseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return (double)now.tv_sec * 1e3 + (double)now.tv_nsec * 1e-6;
}

static Painter painter;
static PictureFormat format = {V4L2_PIX_FMT_YUV420, 1280, 960, false};
static uint8_t *frame, *picture;
static int feedFile;

static void copyOnly(void) {
  const size_t size = (size_t)format.width * (size_t)format.height * 4;
  if (pread(feedFile, frame, size, LL_FRAME_DATA_OFFSET) != (ssize_t)size) {
    fprintf(stderr, "bench-injector: the feed holds no frame of this size\n");
    exit(1);
  }
}

static void convertOnly(void) {
  const size_t plane = (size_t)format.width * (size_t)format.height;
  ARGBToI420(frame, format.width * 4, picture, format.width, picture + plane, format.width / 2,
             picture + plane + plane / 4, format.width / 2, format.width, format.height);
}

static void paintOne(void) { paint(&painter, LLCameraBack, &format, picture, NULL); }

static double best(void (*work)(void)) {
  double least = 1e9;
  for (int round = 0; round < rounds; ++round) {
    const double begin = cpuMilliseconds();
    for (int i = 0; i < frames; ++i) work();
    const double each = (cpuMilliseconds() - begin) / frames;
    if (each < least) least = each;
  }
  return least;
}

int main(int count, char** arguments) {
  if (count < 2) {
    fprintf(stderr, "usage: bench-injector FEED [WIDTH HEIGHT]\n");
    return 2;
  }
  if (count > 3) {
    format.width = atoi(arguments[2]);
    format.height = atoi(arguments[3]);
  }
  setenv("LENSLARK_SHM", arguments[1], 1);
  kernelsSelect();
  feedConfigure();
  realResolve();
  feedFile = open(arguments[1], O_RDONLY | O_CLOEXEC);
  frame = malloc((size_t)format.width * (size_t)format.height * 4);
  picture = malloc(pictureSize(&format));
  paintOne();
  if (painter.lastSign == 0) {
    fprintf(stderr, "bench-injector: %s is no living feed\n", arguments[1]);
    return 1;
  }
  const double copied = best(copyOnly);
  const double converted = best(convertOnly);
  const double painted = best(paintOne);
  printf("%dx%d YU12: copy %.3f ms, libyuv %.3f ms, paint %.3f ms, ratio %.2f\n", format.width,
         format.height, copied, converted, painted, painted / (copied + converted));
  return 0;
}
