// camera_client.c - an application that takes frames of 1280x960 YU12 from /dev/video0:
// `camera-client FRAMES`. Prints for each when the call came back, in nanoseconds of
// CLOCK_MONOTONIC, its middle luma value and the CPU nanoseconds since the one before; then the CPU
// seconds and the elapsed seconds of the whole stream.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <time.h>

enum { width = 1280, height = 960, bufferCount = 4 };

static void check(int outcome, const char* call) {
  if (outcome >= 0) return;
  perror(call);
  exit(1);
}

static long long nanoseconds(clockid_t clock) {
  struct timespec now;
  clock_gettime(clock, &now);
  return (long long)now.tv_sec * 1000000000 + now.tv_nsec;
}

static struct v4l2_buffer bufferWith(unsigned index) {
  return (struct v4l2_buffer){
      .index = index, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
}

int main(int count, char** arguments) {
  const int frames = count > 1 ? atoi(arguments[1]) : 0;
  const unsigned char* pictures[bufferCount];
  const int camera = open("/dev/video0", O_RDWR);
  check(camera, "/dev/video0");
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = width;
  format.fmt.pix.height = height;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUV420;
  check(ioctl(camera, VIDIOC_S_FMT, &format), "VIDIOC_S_FMT");
  struct v4l2_requestbuffers request = {
      .count = bufferCount, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  check(ioctl(camera, VIDIOC_REQBUFS, &request), "VIDIOC_REQBUFS");
  for (unsigned i = 0; i < bufferCount; ++i) {
    struct v4l2_buffer buffer = bufferWith(i);
    check(ioctl(camera, VIDIOC_QUERYBUF, &buffer), "VIDIOC_QUERYBUF");
    pictures[i] = mmap(NULL, buffer.length, PROT_READ, MAP_SHARED, camera, buffer.m.offset);
    check(pictures[i] == MAP_FAILED ? -1 : 0, "mmap");
    check(ioctl(camera, VIDIOC_QBUF, &buffer), "VIDIOC_QBUF");
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  check(ioctl(camera, VIDIOC_STREAMON, &type), "VIDIOC_STREAMON");
  long long begin = 0;
  long long cpu = 0;
  long long before = 0;
  for (int i = 0; i <= frames; ++i) {
    struct v4l2_buffer buffer = bufferWith(0);
    check(ioctl(camera, VIDIOC_DQBUF, &buffer), "VIDIOC_DQBUF");
    const long long now = nanoseconds(CLOCK_MONOTONIC);
    const long long spent = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    if (i == 0) {  // Only a stream that runs is measured.
      begin = now;
      cpu = spent;
    } else {
      printf("%lld %d %lld\n", now, pictures[buffer.index][width * height / 2 + width / 2],
             spent - before);
    }
    before = spent;
    check(ioctl(camera, VIDIOC_QBUF, &buffer), "VIDIOC_QBUF");
  }
  printf("%.6f %.6f\n", (double)(nanoseconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) / 1e9,
         (double)(nanoseconds(CLOCK_MONOTONIC) - begin) / 1e9);
  return 0;
}
