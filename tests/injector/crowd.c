// crowd.c - a client whose threads share one camera and get in each other's way: `crowd COMMAND`.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include "probe.h"

enum { threadCount = 6, callCount = 1000, roundCount = 100 };

static int camera;

static struct v4l2_buffer bufferOf(uint32_t index) {
  return (struct v4l2_buffer){
      .index = index, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
}

static int queue(uint32_t index) {
  struct v4l2_buffer buffer = bufferOf(index);
  return ioctl(camera, VIDIOC_QBUF, &buffer);
}

static int dequeue(void) {
  struct v4l2_buffer buffer = bufferOf(0);
  return ioctl(camera, VIDIOC_DQBUF, &buffer);
}

static int turn(bool on) {
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  return ioctl(camera, on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type);
}

static int request(uint32_t count) {
  struct v4l2_requestbuffers wish = {
      .count = count, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  return ioctl(camera, VIDIOC_REQBUFS, &wish);
}

static int resize(unsigned* seed) {
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = (uint32_t)rand_r(seed) % 2000;
  format.fmt.pix.height = (uint32_t)rand_r(seed) % 1100;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_BGR32;
  return ioctl(camera, VIDIOC_S_FMT, &format);
}

static bool isReadable(int milliseconds) {
  struct pollfd wanted = {.fd = camera, .events = POLLIN};
  return poll(&wanted, 1, milliseconds) == 1 && (wanted.revents & POLLIN);
}

// What the calls answer depends on what the other threads do: that they answer is what counts.
static void* callAnything(void* argument) {
  unsigned seed = (unsigned)(uintptr_t)argument;
  for (int i = 0; i < callCount; ++i) {
    switch (rand_r(&seed) % 16) {
      case 0:
        (void)request((uint32_t)rand_r(&seed) % 5);
        break;
      case 1:
        (void)turn(false);
        break;
      case 2:
      case 3:
        (void)turn(true);
        break;
      case 4:
        (void)resize(&seed);
        break;
      case 5:
      case 6:
      case 7:
        (void)dequeue();
        break;
      default:
        (void)queue((uint32_t)rand_r(&seed) % 6);
    }
  }
  return NULL;
}

static void everyCall(void) {
  camera = open("/dev/video0", O_RDWR | O_NONBLOCK);
  pthread_t threads[threadCount];
  for (uintptr_t i = 0; i < threadCount; ++i) {
    CHECK(pthread_create(&threads[i], NULL, callAnything, (void*)(i + 1)) == 0);
  }
  for (int i = 0; i < threadCount; ++i) CHECK(pthread_join(threads[i], NULL) == 0);
  // None of it may have left the camera unusable.
  CHECK(request(0) == 0 && request(1) == 0 && queue(0) == 0 && turn(true) == 0);
  for (int i = 0; i < 5; ++i) {
    CHECK(isReadable(20000));
    CHECK(dequeue() == 0 && queue(0) == 0);
  }
}

static void* dequeueOnce(void* argument) {
  (void)argument;
  return (void*)(intptr_t)dequeue();
}

// Who waited for a stream that was stopped must not take the notice of the next stream's frame.
static void restarted(void) {
  camera = open("/dev/video0", O_RDWR);
  CHECK(request(1) == 0);
  for (int i = 0; i < roundCount; ++i) {
    CHECK(turn(true) == 0);
    pthread_t waiter;
    CHECK(pthread_create(&waiter, NULL, dequeueOnce, NULL) == 0);
    if (i % 2) usleep(1000);
    CHECK(turn(false) == 0 && queue(0) == 0 && turn(true) == 0);
    void* outcome;
    CHECK(pthread_join(waiter, &outcome) == 0);
    // It may as well have come after all of that.
    if ((intptr_t)outcome != 0) CHECK(isReadable(20000) && dequeue() == 0);
    CHECK(turn(false) == 0);
  }
}

// Closes one of two copies while a picture is made through it. The other goes on.
static void copyClosed(void) {
  const int first = open("/dev/video0", O_RDWR);
  for (int i = 0; i < roundCount; ++i) {
    camera = first;
    CHECK(request(3) == 0 && queue(0) == 0 && queue(1) == 0 && queue(2) == 0);
    camera = dup(first);
    CHECK(turn(true) == 0);
    pthread_t taker;
    CHECK(pthread_create(&taker, NULL, dequeueOnce, NULL) == 0);
    usleep((useconds_t)(i * 20));
    CHECK(close(camera) == 0);
    void* outcome;
    CHECK(pthread_join(taker, &outcome) == 0);
    camera = first;
    CHECK(isReadable(20000) && dequeue() == 0 && turn(false) == 0);
  }
}

typedef struct Due {
  uint64_t earliest, latest;
} Due;

static uint64_t clockNow(void) {
  struct timespec now;
  CHECK(clock_gettime(CLOCK_MONOTONIC, &now) == 0);
  return (uint64_t)now.tv_sec * 1000000000U + (uint64_t)now.tv_nsec;
}

// When the next frame is due. Both 0 if it was due already.
static Due nextDue(void) {
  struct itimerspec left;
  const uint64_t before = clockNow();
  CHECK(timerfd_gettime(camera, &left) == 0);
  const uint64_t wait =
      (uint64_t)left.it_value.tv_sec * 1000000000U + (uint64_t)left.it_value.tv_nsec;
  return wait ? (Due){before + wait, clockNow() + wait} : (Due){0, 0};
}

// A program that inherits the camera and has no use for it leaves the frames where they are.
static void spawning(void) {
  camera = open("/dev/video0", O_RDWR);
  struct v4l2_streamparm slow = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  slow.parm.capture.timeperframe = (struct v4l2_fract){1, 5};
  CHECK(ioctl(camera, VIDIOC_S_PARM, &slow) == 0);
  CHECK(request(1) == 0 && queue(0) == 0 && turn(true) == 0);
  for (int i = 0; i < 10; ++i) {
    CHECK(dequeue() == 0 && queue(0) == 0);
    const Due before = nextDue();
    CHECK(system("exec true") == 0);
    const Due after = nextDue();
    if (before.latest == 0) continue;
    if (after.latest == 0) {
      CHECK(clockNow() >= before.earliest);
    } else {
      CHECK(after.earliest <= before.latest && before.earliest <= after.latest);
    }
  }
}

int main(int count, char** arguments) {
  const char* command = count > 1 ? arguments[1] : "";
  if (strcmp(command, "everyCall") == 0) {
    everyCall();
  } else if (strcmp(command, "restarted") == 0) {
    restarted();
  } else if (strcmp(command, "copyClosed") == 0) {
    copyClosed();
  } else if (strcmp(command, "spawning") == 0) {
    spawning();
  } else {
    fprintf(stderr, "crowd: unknown command\n");
    return 2;
  }
  return 0;
}
