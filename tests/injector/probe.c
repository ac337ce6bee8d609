// probe.c - a client for the tests that streams: `probe COMMAND ...`. Each command checks one thing
// and says what went wrong; it knows nothing of the library that it runs under.
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "probe.h"

static const char* devicePath = "/dev/video0";

typedef struct Camera {
  int descriptor;
  uint32_t size;
  uint8_t* buffers[4];
} Camera;

static double seconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

static void setFormat(Camera* camera, uint32_t fourcc, uint32_t width, uint32_t height) {
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = width;
  format.fmt.pix.height = height;
  format.fmt.pix.pixelformat = fourcc;
  CHECK(ioctl(camera->descriptor, VIDIOC_S_FMT, &format) == 0);
  CHECK(format.fmt.pix.width == width && format.fmt.pix.height == height);
  CHECK(format.fmt.pix.pixelformat == fourcc);
  camera->size = format.fmt.pix.sizeimage;
}

static void queue(const Camera* camera, uint32_t index) {
  struct v4l2_buffer buffer = {
      .index = index, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera->descriptor, VIDIOC_QBUF, &buffer) == 0);
}

static void mapBuffers(Camera* camera) {
  struct v4l2_requestbuffers request = {
      .count = 4, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera->descriptor, VIDIOC_REQBUFS, &request) == 0 && request.count == 4);
  for (uint32_t i = 0; i < 4; ++i) {
    struct v4l2_buffer buffer = {
        .index = i, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
    CHECK(ioctl(camera->descriptor, VIDIOC_QUERYBUF, &buffer) == 0);
    camera->buffers[i] = mmap(NULL, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED,
                              camera->descriptor, (off_t)buffer.m.offset);
    CHECK(camera->buffers[i] != MAP_FAILED);
    queue(camera, i);
  }
}

static void turn(const Camera* camera, bool on) {
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera->descriptor, on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type) == 0);
}

static int dequeue(const Camera* camera, struct v4l2_buffer* buffer) {
  memset(buffer, 0, sizeof(*buffer));
  buffer->type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer->memory = V4L2_MEMORY_MMAP;
  return ioctl(camera->descriptor, VIDIOC_DQBUF, buffer);
}

static Camera start(int flags, uint32_t fourcc, uint32_t width, uint32_t height) {
  Camera camera = {.descriptor = open(devicePath, O_RDWR | flags)};
  CHECK(camera.descriptor >= 0);
  setFormat(&camera, fourcc, width, height);
  mapBuffers(&camera);
  turn(&camera, true);
  return camera;
}

// Prints for each frame when it was made and the colours in the middle of its left and right half.
static void watch(void) {
  Camera camera = start(0, V4L2_PIX_FMT_BGR32, 640, 480);
  for (;;) {
    struct v4l2_buffer buffer;
    CHECK(dequeue(&camera, &buffer) == 0);
    const uint8_t* row = camera.buffers[buffer.index] + 240 * 640 * 4;
    const uint8_t* left = row + 160 * 4;
    const uint8_t* right = row + 480 * 4;
    printf("%ld.%06ld %02x%02x%02x %02x%02x%02x\n", (long)buffer.timestamp.tv_sec,
           (long)buffer.timestamp.tv_usec, left[2], left[1], left[0], right[2], right[1], right[0]);
    fflush(stdout);
    queue(&camera, buffer.index);
  }
}

// Writes the third frame in a format to standard output.
static void grab(const char* fourcc, uint32_t width, uint32_t height, bool bt709) {
  Camera camera = {.descriptor = open(devicePath, O_RDWR)};
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = width;
  format.fmt.pix.height = height;
  memcpy(&format.fmt.pix.pixelformat, fourcc, 4);
  format.fmt.pix.priv = V4L2_PIX_FMT_PRIV_MAGIC;
  format.fmt.pix.flags = bt709 ? V4L2_PIX_FMT_FLAG_SET_CSC : 0;
  format.fmt.pix.ycbcr_enc = bt709 ? V4L2_YCBCR_ENC_709 : 0;
  CHECK(ioctl(camera.descriptor, VIDIOC_S_FMT, &format) == 0);
  if (bt709) CHECK(format.fmt.pix.ycbcr_enc == V4L2_YCBCR_ENC_709);
  mapBuffers(&camera);
  turn(&camera, true);
  struct v4l2_buffer buffer;
  for (int i = 0; i < 3; ++i) {
    CHECK(dequeue(&camera, &buffer) == 0);
    if (i < 2) queue(&camera, buffer.index);
  }
  CHECK(fwrite(camera.buffers[buffer.index], 1, buffer.bytesused, stdout) == buffer.bytesused);
}

// As a virtual machine takes frames: never blocks, never polls, tries every 10 ms for 2 seconds.
static void emulator(void) {
  struct stat status;
  CHECK(stat(devicePath, &status) == 0 && S_ISCHR(status.st_mode));
  Camera camera = {.descriptor = open(devicePath, O_RDWR | O_NONBLOCK)};
  CHECK(camera.descriptor >= 0);
  CHECK(fstat(camera.descriptor, &status) == 0 && S_ISCHR(status.st_mode));
  struct v4l2_capability capability;
  CHECK(ioctl(camera.descriptor, VIDIOC_QUERYCAP, &capability) == 0);
  CHECK(capability.capabilities & V4L2_CAP_VIDEO_CAPTURE);
  struct v4l2_fmtdesc description = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  CHECK(ioctl(camera.descriptor, VIDIOC_ENUM_FMT, &description) == 0);
  CHECK(description.pixelformat == V4L2_PIX_FMT_YUV420);
  struct v4l2_frmsizeenum size = {.pixel_format = V4L2_PIX_FMT_YUV420};
  uint32_t sizes = 0;
  for (; ioctl(camera.descriptor, VIDIOC_ENUM_FRAMESIZES, &size) == 0; size.index = ++sizes) {
    CHECK(size.type == V4L2_FRMSIZE_TYPE_DISCRETE);
    setFormat(&camera, V4L2_PIX_FMT_YUV420, size.discrete.width, size.discrete.height);
    mapBuffers(&camera);
    turn(&camera, true);
    for (int frame = 0; frame < 10; ++frame) {
      struct v4l2_buffer buffer;
      const double end = seconds() + 2;
      int outcome;
      while ((outcome = dequeue(&camera, &buffer)) != 0 && errno == EAGAIN && seconds() < end) {
        usleep(10000);
      }
      CHECK(outcome == 0);
      CHECK(buffer.bytesused == size.discrete.width * size.discrete.height * 3 / 2);
      queue(&camera, buffer.index);
    }
    turn(&camera, false);
    for (int i = 0; i < 4; ++i) CHECK(munmap(camera.buffers[i], camera.size) == 0);
    struct v4l2_requestbuffers none = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE,
                                       .memory = V4L2_MEMORY_MMAP};
    CHECK(ioctl(camera.descriptor, VIDIOC_REQBUFS, &none) == 0);
  }
  CHECK(sizes == 4 && errno == EINVAL);
  CHECK(close(camera.descriptor) == 0);
}

// Frames that came and those that were left out because this program was late.
static void rate(void) {
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 1280, 960);
  struct v4l2_buffer buffer;
  CHECK(dequeue(&camera, &buffer) == 0);
  const uint32_t first = buffer.sequence;
  const double begin = seconds();
  for (int i = 0; i < 60; ++i) {
    queue(&camera, buffer.index);
    CHECK(dequeue(&camera, &buffer) == 0);
  }
  printf("%.2f\n", (buffer.sequence - first) / (seconds() - begin));
}

// Takes all frames that are due, at least one, and gives the buffers back.
static void drain(const Camera* camera) {
  struct v4l2_buffer buffers[4];
  int taken = 0;
  while (taken < 4 && dequeue(camera, &buffers[taken]) == 0) ++taken;
  CHECK(taken > 0 && (taken == 4 || errno == EAGAIN));
  if (taken == 4) CHECK(dequeue(camera, &buffers[0]) != 0 && errno == EAGAIN);
  for (uint32_t i = 0; i < (uint32_t)taken; ++i) queue(camera, taken == 4 ? i : buffers[i].index);
}

static void waiting(void) {
  Camera camera = start(O_NONBLOCK, V4L2_PIX_FMT_YUV420, 640, 480);
  struct pollfd wanted = {.fd = camera.descriptor, .events = POLLIN};
  const int set = epoll_create1(0);
  struct epoll_event event = {.events = EPOLLIN};
  CHECK(epoll_ctl(set, EPOLL_CTL_ADD, camera.descriptor, &event) == 0);
  for (int i = 0; i < 10; ++i) {
    if (i % 2) {
      CHECK(poll(&wanted, 1, 20000) == 1 && (wanted.revents & POLLIN));
    } else {
      CHECK(epoll_wait(set, &event, 1, 20000) == 1);
    }
    drain(&camera);
  }
}

static void nothing(int signal) { (void)signal; }

static void interrupted(void) {
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 640, 480);
  const struct sigaction action = {.sa_handler = nothing};
  CHECK(sigaction(SIGALRM, &action, NULL) == 0);
  struct v4l2_buffer buffer;
  for (int i = 0; i < 4; ++i) CHECK(dequeue(&camera, &buffer) == 0);
  // Nothing is queued: only a signal can end the wait.
  const struct itimerval often = {{0, 200000}, {0, 200000}};
  CHECK(setitimer(ITIMER_REAL, &often, NULL) == 0);
  CHECK(dequeue(&camera, &buffer) != 0 && errno == EINTR);
}

static void* dequeueAll(void* argument) {
  struct v4l2_buffer buffer;
  while (dequeue(argument, &buffer) == 0) {
  }
  return (void*)(intptr_t)errno;
}

static void stopped(void) {
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 640, 480);
  pthread_t threads[3];
  for (int i = 0; i < 3; ++i) {
    CHECK(pthread_create(&threads[i], NULL, dequeueAll, &camera) == 0);
  }
  usleep(300000);
  turn(&camera, false);
  for (int i = 0; i < 3; ++i) {
    void* result;
    CHECK(pthread_join(threads[i], &result) == 0 && (intptr_t)result == EINVAL);
  }
}

static void reading(void) {
  Camera camera = {.descriptor = open(devicePath, O_RDONLY)};
  setFormat(&camera, V4L2_PIX_FMT_YUYV, 640, 480);
  uint8_t* picture = malloc(camera.size);
  CHECK(read(camera.descriptor, picture, camera.size) == (ssize_t)camera.size);
  CHECK(read(camera.descriptor, picture, 1000) == 1000);
  CHECK(read(camera.descriptor, picture, camera.size) == (ssize_t)camera.size - 1000);
  CHECK(read(camera.descriptor, (void*)8, camera.size) == -1 && errno == EFAULT);
  struct v4l2_requestbuffers request = {
      .count = 4, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera.descriptor, VIDIOC_REQBUFS, &request) != 0 && errno == EBUSY);
  free(picture);
}

static void badPointers(void) {
  void* const bad = (void*)8;
  const int descriptor = open(devicePath, O_RDWR);
  CHECK(open(bad, O_RDONLY) < 0 && errno == EFAULT);
  struct stat status;
  CHECK(stat(bad, &status) < 0 && errno == EFAULT);
  CHECK(stat(devicePath, bad) < 0 && errno == EFAULT);
  CHECK(fstat(descriptor, bad) < 0 && errno == EFAULT);
  CHECK(access(bad, R_OK) < 0 && errno == EFAULT);
  CHECK(ioctl(descriptor, VIDIOC_QUERYCAP, bad) < 0 && errno == EFAULT);
  CHECK(ioctl(descriptor, VIDIOC_S_FMT, NULL) < 0 && errno == EFAULT);
  CHECK(ioctl(descriptor, VIDIOC_DQBUF, bad) < 0 && errno == EFAULT);
  CHECK(ioctl(descriptor, _IOWR('V', 255, int), bad) < 0 && (errno == ENOTTY || errno == EFAULT));
  CHECK(ioctl(descriptor, TIOCGWINSZ, bad) < 0 && errno == ENOTTY);
}

static void copies(void) {
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 640, 480);
  const int first = dup(camera.descriptor);
  const int second = fcntl(camera.descriptor, F_DUPFD_CLOEXEC, 100);
  CHECK(first >= 0 && second >= 100);
  CHECK(dup2(camera.descriptor, 200) == 200 && dup3(camera.descriptor, 201, O_CLOEXEC) == 201);
  CHECK(close(camera.descriptor) == 0 && close(first) == 0 && close(second) == 0);
  struct v4l2_buffer buffer;
  camera.descriptor = 200;
  CHECK(dequeue(&camera, &buffer) == 0);
  CHECK(close_range(150, 250, 0) == 0);
  CHECK(dequeue(&camera, &buffer) != 0 && errno == EBADF);
  // The last copy is gone and with it the buffers: another may have the camera.
  CHECK(munmap(camera.buffers[0], camera.size) == 0);
  start(0, V4L2_PIX_FMT_NV12, 1280, 720);
}

static void manyOpens(void) {
  for (int i = 0; i < 10000; ++i) {
    const int descriptor = open(i % 2 ? "/dev/video1" : "/dev/video0", O_RDWR | O_NONBLOCK);
    CHECK(descriptor >= 0 && descriptor < 10);
    CHECK(close(descriptor) == 0);
  }
}

// Forks and spawns while the camera streams: the stream must not notice.
static void storm(void) {
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 640, 480);
  for (int i = 0; i < 100; ++i) {
    struct v4l2_buffer buffer;
    const pid_t forked = fork();
    if (forked == 0) {
      close_range(3, 1000, 0);
      _exit(7);
    }
    const pid_t vforked = vfork();
    if (vforked == 0) {
      close(camera.descriptor);
      dup2(1, camera.descriptor);
      execl("/bin/true", "true", (char*)NULL);
      _exit(1);
    }
    int status;
    CHECK(waitpid(forked, &status, 0) == forked && WEXITSTATUS(status) == 7);
    CHECK(waitpid(vforked, &status, 0) == vforked && status == 0);
    if (i % 10) continue;
    CHECK(dequeue(&camera, &buffer) == 0);
    queue(&camera, buffer.index);
  }
}

static void child(void) {
  // A child that never had the camera open may open it, and the parent's goes on.
  Camera camera = start(0, V4L2_PIX_FMT_YUV420, 640, 480);
  const pid_t forked = fork();
  if (forked == 0) {
    struct v4l2_capability capability;
    CHECK(ioctl(camera.descriptor, VIDIOC_QUERYCAP, &capability) == 0);
    devicePath = "/dev/video1";
    Camera own = start(0, V4L2_PIX_FMT_YUYV, 640, 480);
    struct v4l2_buffer buffer;
    CHECK(dequeue(&own, &buffer) == 0);
    _exit(0);
  }
  int status;
  CHECK(waitpid(forked, &status, 0) == forked && status == 0);
  struct v4l2_buffer buffer;
  CHECK(dequeue(&camera, &buffer) == 0);
}

static void* openAndQuery(void* argument) {
  for (int i = 0; i < 500; ++i) {
    const int descriptor = open(argument, O_RDWR);
    struct v4l2_capability capability;
    CHECK(descriptor >= 0 && ioctl(descriptor, VIDIOC_QUERYCAP, &capability) == 0);
    CHECK(strncmp((char*)capability.card, "Lenslark Camera", 15) == 0);
    CHECK(close(descriptor) == 0);
  }
  return NULL;
}

static void threads(void) {
  pthread_t all[8];
  for (int i = 0; i < 8; ++i) {
    void* path = (void*)(uintptr_t)(i % 2 ? "/dev/video1" : "/dev/video0");
    CHECK(pthread_create(&all[i], NULL, openAndQuery, path) == 0);
  }
  for (int i = 0; i < 8; ++i) CHECK(pthread_join(all[i], NULL) == 0);
}

static void userPointers(void) {
  Camera camera = {.descriptor = open(devicePath, O_RDWR)};
  setFormat(&camera, V4L2_PIX_FMT_BGR32, 640, 480);
  struct v4l2_requestbuffers request = {
      .count = 1, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_USERPTR};
  CHECK(ioctl(camera.descriptor, VIDIOC_REQBUFS, &request) == 0);
  uint8_t* picture =
      mmap(NULL, camera.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  struct v4l2_buffer buffer = {
      .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_USERPTR, .length = camera.size};
  CHECK(ioctl(camera.descriptor, VIDIOC_QBUF, &buffer) != 0 && errno == EFAULT);
  buffer.m.userptr = (unsigned long)picture;
  CHECK(mprotect(picture, camera.size, PROT_READ) == 0);
  CHECK(ioctl(camera.descriptor, VIDIOC_QBUF, &buffer) != 0 && errno == EFAULT);
  CHECK(mprotect(picture, camera.size, PROT_READ | PROT_WRITE) == 0);
  buffer.length = camera.size;
  CHECK(ioctl(camera.descriptor, VIDIOC_QBUF, &buffer) == 0);
  turn(&camera, true);
  CHECK(ioctl(camera.descriptor, VIDIOC_DQBUF, &buffer) == 0);
  CHECK(!(buffer.flags & V4L2_BUF_FLAG_ERROR) && picture[3] == 255);
  // Memory that goes away while it is queued spoils the frame, not the program.
  CHECK(ioctl(camera.descriptor, VIDIOC_QBUF, &buffer) == 0);
  CHECK(munmap(picture, camera.size) == 0);
  CHECK(ioctl(camera.descriptor, VIDIOC_DQBUF, &buffer) == 0);
  CHECK(buffer.flags & V4L2_BUF_FLAG_ERROR);
}

int main(int count, char** arguments) {
  static const struct {
    const char* name;
    void (*run)(void);
  } commands[] = {
      {"watch", watch},
      {"emulator", emulator},
      {"rate", rate},
      {"waiting", waiting},
      {"interrupted", interrupted},
      {"stopped", stopped},
      {"reading", reading},
      {"badPointers", badPointers},
      {"copies", copies},
      {"manyOpens", manyOpens},
      {"storm", storm},
      {"child", child},
      {"threads", threads},
      {"userPointers", userPointers},
  };
  if (count > 1 && getenv("PROBE_DEVICE")) devicePath = getenv("PROBE_DEVICE");
  if (count >= 5 && strcmp(arguments[1], "grab") == 0) {
    grab(arguments[2], (uint32_t)atoi(arguments[3]), (uint32_t)atoi(arguments[4]), count > 5);
    return 0;
  }
  for (size_t i = 0; count >= 2 && i < sizeof(commands) / sizeof(commands[0]); ++i) {
    if (strcmp(arguments[1], commands[i].name) != 0) continue;
    commands[i].run();
    return 0;
  }
  fprintf(stderr, "probe: unknown command\n");
  return 2;
}
