// calls.c - a client for the tests that makes the calls by which programs find and open a camera,
// each in all its variants: `calls COMMAND`. The first two cameras are /dev/video0 and /dev/video1.
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <linux/close_range.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include "probe.h"

static void* volatile bad = (void*)8;

// What fortified programs call instead of the plain names.
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int directory, const char* path, int flags);
int __openat64_2(int directory, const char* path, int flags);
ssize_t __readlink_chk(const char* path, char* into, size_t size, size_t room);
ssize_t __readlinkat_chk(int directory, const char* path, char* into, size_t size, size_t room);
ssize_t __read_chk(int descriptor, void* into, size_t size, size_t room);
char* __realpath_chk(const char* path, char* into, size_t room);

// What programs built against older C libraries call.
int __xstat(int version, const char* path, struct stat* into);
int __lxstat64(int version, const char* path, struct stat64* into);
int __fxstat(int version, int descriptor, struct stat* into);
int __fxstatat(int version, int directory, const char* path, struct stat* into, int flags);

static bool isCamera(int descriptor, int number) {
  struct v4l2_capability capability;
  struct stat status;
  const char* name = number ? "Lenslark Camera (Front)" : "Lenslark Camera";
  return ioctl(descriptor, VIDIOC_QUERYCAP, &capability) == 0 &&
         strcmp((char*)capability.card, name) == 0 && fstat(descriptor, &status) == 0 &&
         S_ISCHR(status.st_mode) && status.st_rdev == makedev(81, (unsigned)number);
}

static void checkCamera(int descriptor) {
  CHECK(descriptor >= 0 && isCamera(descriptor, 0));
  CHECK(close(descriptor) == 0);
  CHECK(close(descriptor) != 0 && errno == EBADF);
}

static void opening(void) {
  const int directory = open("/dev", O_RDONLY | O_DIRECTORY);
  checkCamera(open("/dev/video0", O_RDWR));
  checkCamera(open64("/dev/video0", O_RDONLY));
  checkCamera(openat(directory, "video0", O_RDWR | O_NONBLOCK));
  checkCamera(openat64(directory, "./video0", O_RDWR));
  checkCamera(__open_2("/dev/video0", O_RDWR));
  checkCamera(__open64_2("/dev/video0", O_RDWR));
  checkCamera(__openat_2(directory, "video0", O_RDWR));
  checkCamera(__openat64_2(AT_FDCWD, "/dev/video0", O_RDWR));
  checkCamera(open("/dev/char/81:0", O_RDWR));
  checkCamera(creat("/dev/video0", 0600));
  checkCamera(creat64("/dev/video0", 0600));
  checkCamera(open("/dev/video0", O_RDWR | O_CREAT, 0600));
  CHECK(chdir("/dev") == 0);
  checkCamera(open("video0", O_RDWR));
  const int camera = open("/dev/video0", O_RDWR | O_CLOEXEC | O_NONBLOCK);
  CHECK(fcntl(camera, F_GETFD) == FD_CLOEXEC && (fcntl(camera, F_GETFL) & O_NONBLOCK));
  CHECK(open("/dev/video0", O_RDWR | O_CREAT | O_EXCL, 0600) < 0 && errno == EEXIST);
  CHECK(open("/dev/video0", O_RDONLY | O_DIRECTORY) < 0 && errno == ENOTDIR);
  CHECK(open("/dev/video0/x", O_RDONLY) < 0 && (errno == ENOENT || errno == ENOTDIR));
  CHECK(open("/dev/video00", O_RDONLY) < 0 && errno == ENOENT);
  CHECK(open("/dev/video2", O_RDONLY) < 0 && errno == ENOENT);
  CHECK(open("/dev/video99999999999999999999", O_RDONLY) < 0 && errno == ENOENT);
  CHECK(openat(directory, bad, O_RDONLY) < 0 && errno == EFAULT);
}

static void checkStatus(int outcome, const struct stat* status) {
  CHECK(outcome == 0 && S_ISCHR(status->st_mode) && status->st_rdev == makedev(81, 1));
}

static void status(void) {
  const char* path = "/dev/../dev//video1";
  const int directory = open("/dev", O_RDONLY | O_DIRECTORY);
  const int camera = open(path, O_RDWR);
  struct stat status;
  struct stat64 status64;
  checkStatus(stat(path, &status), &status);
  checkStatus(lstat(path, &status), &status);
  checkStatus(fstat(camera, &status), &status);
  checkStatus(fstatat(directory, "video1", &status, 0), &status);
  checkStatus(fstatat(camera, "", &status, AT_EMPTY_PATH), &status);
  checkStatus(__xstat(1, path, &status), &status);
  checkStatus(__fxstat(1, camera, &status), &status);
  checkStatus(__fxstatat(1, directory, "video1", &status, AT_SYMLINK_NOFOLLOW), &status);
  CHECK(stat64(path, &status64) == 0 && S_ISCHR(status64.st_mode));
  CHECK(lstat64(path, &status64) == 0 && S_ISCHR(status64.st_mode));
  CHECK(fstat64(camera, &status64) == 0 && S_ISCHR(status64.st_mode));
  CHECK(fstatat64(directory, "video1", &status64, 0) == 0 && S_ISCHR(status64.st_mode));
  CHECK(__lxstat64(1, path, &status64) == 0 && S_ISCHR(status64.st_mode));
  struct statx more;
  CHECK(statx(AT_FDCWD, path, 0, STATX_BASIC_STATS, &more) == 0 && S_ISCHR(more.stx_mode));
  CHECK(more.stx_rdev_major == 81 && more.stx_rdev_minor == 1);
  CHECK(statx(camera, "", AT_EMPTY_PATH, STATX_TYPE, &more) == 0 && S_ISCHR(more.stx_mode));
  // Later kernels take this for an empty path.
  const char* volatile none = NULL;
  CHECK(fstatat(camera, none, &status, AT_EMPTY_PATH) == 0 ? S_ISCHR(status.st_mode)
                                                           : errno == EFAULT);
  CHECK(statx(camera, none, AT_EMPTY_PATH, STATX_TYPE, &more) == 0 ? S_ISCHR(more.stx_mode)
                                                                   : errno == EFAULT);
  CHECK(fstatat(directory, none, &status, AT_EMPTY_PATH) == 0 ? S_ISDIR(status.st_mode)
                                                              : errno == EFAULT);
  CHECK(stat(path, bad) < 0 && errno == EFAULT);
  CHECK(fstatat(directory, "video1", bad, 0) < 0 && errno == EFAULT);
  CHECK(statx(AT_FDCWD, path, 0, STATX_TYPE, bad) < 0 && errno == EFAULT);
  CHECK(statx(camera, "", AT_EMPTY_PATH, STATX_TYPE, bad) < 0 && errno == EFAULT);
  CHECK(fstat(-1, &status) < 0 && errno == EBADF);
}

static void checkRights(int (*may)(const char*, int)) {
  CHECK(may("/dev/video0", F_OK) == 0 && may("/dev/video0", R_OK | W_OK) == 0);
  CHECK(may("/dev/video0", X_OK) != 0 && errno == EACCES);
  CHECK(may("/dev/video2", F_OK) != 0 && errno == ENOENT);
  CHECK(may(bad, F_OK) != 0 && errno == EFAULT);
}

static void rights(void) {
  checkRights(access);
  checkRights(euidaccess);
  checkRights(eaccess);
  const int directory = open("/dev", O_RDONLY | O_DIRECTORY);
  CHECK(faccessat(directory, "video0", R_OK | W_OK, 0) == 0);
  CHECK(faccessat(directory, "video0", R_OK, AT_EACCESS) == 0);
  CHECK(faccessat(directory, "video0", R_OK, 0x4000) != 0 && errno == EINVAL);
}

static void links(void) {
  char name[4096];
  const char* link = "/sys/class/video4linux/video1";
  const char* place = "/sys/devices/virtual/video4linux/video1";
  CHECK(realpath(link, name) && strcmp(name, place) == 0);
  CHECK(__realpath_chk("/dev/char/81:1", name, sizeof(name)) && strcmp(name, "/dev/video1") == 0);
  char* made = canonicalize_file_name(link);
  CHECK(made && strcmp(made, place) == 0);
  free(made);
  CHECK(readlink(link, name, sizeof(name)) == (ssize_t)strlen(place));
  CHECK(readlinkat(AT_FDCWD, link, name, 5) == 5 && memcmp(name, place, 5) == 0);
  CHECK(__readlink_chk(link, name, sizeof(name), sizeof(name)) == (ssize_t)strlen(place));
  CHECK(__readlinkat_chk(AT_FDCWD, link, name, 5, sizeof(name)) == 5);
  CHECK(readlink("/dev/video0", name, sizeof(name)) < 0 && errno == EINVAL);
  CHECK(readlink(link, bad, 100) < 0 && errno == EFAULT);
}

static bool isOurs(const char* name) {
  return strcmp(name, "video0") == 0 || strcmp(name, "video1") == 0;
}

static int isOursEntry(const struct dirent* entry) { return isOurs(entry->d_name); }
static int isOursEntry64(const struct dirent64* entry) { return isOurs(entry->d_name); }

static void freeAll(void* list, int count) {
  for (int i = 0; i < count; ++i) free(((void**)list)[i]);
  free(list);
}

static void checkStreams(const char* path) {
  DIR* stream = opendir(path);
  CHECK(stream);
  int seen = 0;
  long before = 0;
  for (;;) {
    const long position = telldir(stream);
    const struct dirent* entry = readdir(stream);
    if (!entry) break;
    if (strcmp(entry->d_name, "video1") == 0) before = position;
    seen += isOurs(entry->d_name);
  }
  CHECK(seen == 2);
  seekdir(stream, before);
  const struct dirent* again = readdir(stream);
  CHECK(again && strcmp(again->d_name, "video1") == 0);
  rewinddir(stream);
  const struct dirent64* entry64;
  for (seen = 0; (entry64 = readdir64(stream));) seen += isOurs(entry64->d_name);
  CHECK(seen == 2);
  rewinddir(stream);
  struct dirent room;
  struct dirent* entry = &room;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  for (seen = 0; readdir_r(stream, &room, &entry) == 0 && entry;) seen += isOurs(entry->d_name);
#pragma GCC diagnostic pop
  CHECK(seen == 2);
  CHECK(closedir(stream) == 0);
  struct dirent** list;
  CHECK(scandir(path, &list, isOursEntry, alphasort) == 2);
  CHECK(strcmp(list[0]->d_name, "video0") == 0 && strcmp(list[1]->d_name, "video1") == 0);
  freeAll(list, 2);
  struct dirent64** list64;
  CHECK(scandir64(path, &list64, isOursEntry64, alphasort64) == 2);
  freeAll(list64, 2);
}

static void listing(void) {
  checkStreams("/dev");
  checkStreams("/sys/class/video4linux");
  checkStreams("/sys/devices/virtual/video4linux");
  const int root = open("/", O_RDONLY | O_DIRECTORY);
  struct dirent** list;
  CHECK(scandirat(root, "dev", &list, isOursEntry, NULL) == 2);
  freeAll(list, 2);
  const int directory = openat(root, "dev", O_RDONLY | O_DIRECTORY);
  int seen = 0;
  DIR* stream = fdopendir(directory);
  for (const struct dirent* entry; (entry = readdir(stream));) seen += isOurs(entry->d_name);
  closedir(stream);
  CHECK(seen == 2);
  glob_t found;
  CHECK(glob("/dev/video*", 0, NULL, &found) == 0 && found.gl_pathc == 2);
  globfree(&found);
  CHECK(glob("/sys/class/video4linux/*/name", 0, NULL, &found) == 0 && found.gl_pathc == 2);
  globfree(&found);
  CHECK(glob("/dev/nothing*", 0, NULL, &found) == GLOB_NOMATCH);
  const char* volatile none = NULL;
  CHECK(glob(none, 0, NULL, &found) == -1 && errno == EINVAL);
  CHECK(glob("/dev/*", 0, NULL, NULL) == -1 && errno == EINVAL);
}

static void files(void) {
  char line[64];
  FILE* name = fopen("/sys/class/video4linux/video1/name", "r");
  CHECK(name && fgets(line, sizeof(line), name) && strcmp(line, "Lenslark Camera (Front)\n") == 0);
  name = freopen("/sys/class/video4linux/video0/name", "r", name);
  CHECK(name && fgets(line, sizeof(line), name) && strcmp(line, "Lenslark Camera\n") == 0);
  name = freopen("/etc/passwd", "r", name);
  CHECK(name && fgets(line, sizeof(line), name));
  CHECK(!freopen("/sys/class/video4linux/video9/name", "r", name) && errno == ENOENT);
  FILE* number = fopen64("/sys/dev/char/81:0/dev", "r");
  CHECK(number && fgets(line, sizeof(line), number) && strcmp(line, "81:0\n") == 0);
  fclose(number);
  const int event = open("/sys/class/video4linux/video1/uevent", O_RDONLY);
  const ssize_t length = read(event, line, sizeof(line) - 1);
  CHECK(length > 0);
  line[length] = '\0';
  CHECK(strcmp(line, "MAJOR=81\nMINOR=1\nDEVNAME=video1\n") == 0);
  CHECK(open("/sys/class/video4linux/video1/name", O_RDWR) < 0 && errno == EACCES);
  CHECK(access("/sys/class/video4linux/video1/device", F_OK) != 0 && errno == ENOENT);
}

static void startStream(int camera, uint32_t count) {
  struct v4l2_requestbuffers request = {
      .count = count, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera, VIDIOC_REQBUFS, &request) == 0 && request.count == count);
  for (uint32_t i = 0; i < count; ++i) {
    struct v4l2_buffer buffer = {
        .index = i, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
    CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) == 0);
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera, VIDIOC_STREAMON, &type) == 0);
}

static int take(int camera) {
  struct v4l2_buffer buffer = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  const int outcome = ioctl(camera, VIDIOC_DQBUF, &buffer);
  return outcome == 0 ? ioctl(camera, VIDIOC_QBUF, &buffer) : outcome;
}

static void buffers(void) {
  const int camera = open("/dev/video0", O_RDWR | O_NONBLOCK);
  struct v4l2_buffer buffer = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera, VIDIOC_QUERYBUF, &buffer) != 0 && errno == EINVAL);
  CHECK(ioctl(camera, VIDIOC_DQBUF, &buffer) != 0 && errno == EINVAL);
  startStream(camera, 3);
  CHECK(ioctl(camera, VIDIOC_QUERYBUF, &buffer) == 0 && (buffer.flags & V4L2_BUF_FLAG_QUEUED));
  CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) != 0 && errno == EINVAL);
  buffer.index = 3;
  CHECK(ioctl(camera, VIDIOC_QUERYBUF, &buffer) != 0 && errno == EINVAL);
  // A mapping may be shorter than the buffer, but not longer.
  const size_t size = buffer.length;
  void* start = mmap(NULL, 1, PROT_READ, MAP_SHARED, camera, 0);
  CHECK(start != MAP_FAILED && munmap(start, 1) == 0);
  CHECK(mmap(NULL, size + 65536, PROT_READ, MAP_SHARED, camera, 0) == MAP_FAILED);
  CHECK(mmap(NULL, SIZE_MAX, PROT_READ, MAP_SHARED, camera, 0) == MAP_FAILED);
  CHECK(mmap(NULL, 0, PROT_READ, MAP_SHARED, camera, 0) == MAP_FAILED && errno == EINVAL);
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  CHECK(ioctl(camera, VIDIOC_G_FMT, &format) == 0);
  CHECK(ioctl(camera, VIDIOC_S_FMT, &format) != 0 && errno == EBUSY);
  struct v4l2_create_buffers more = {.count = 2, .memory = V4L2_MEMORY_MMAP, .format = format};
  CHECK(ioctl(camera, VIDIOC_CREATE_BUFS, &more) == 0 && more.index == 3 && more.count == 2);
  // Whoever hands in a DMA buffer expects a device to write to it.
  struct v4l2_requestbuffers request = {
      .count = 1, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_DMABUF};
  CHECK(ioctl(camera, VIDIOC_REQBUFS, &request) != 0 && errno == EINVAL);
  struct v4l2_queryctrl control = {.id = V4L2_CID_BRIGHTNESS};
  CHECK(ioctl(camera, VIDIOC_QUERYCTRL, &control) != 0 && errno == ENOTTY);
  // Another may look at the format, but has to wait with buffers of its own.
  const int other = open("/dev/video0", O_RDWR);
  CHECK(ioctl(other, VIDIOC_G_FMT, &format) == 0);
  request.memory = V4L2_MEMORY_MMAP;
  CHECK(ioctl(other, VIDIOC_REQBUFS, &request) != 0 && errno == EBUSY);
  CHECK(close(camera) == 0);
  CHECK(ioctl(other, VIDIOC_REQBUFS, &request) == 0);
}

static void formatIsShared(void) {
  const int one = open("/dev/video0", O_RDWR);
  const int two = open("/dev/video0", O_RDWR);
  const int front = open("/dev/video1", O_RDWR);
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = 1920;
  format.fmt.pix.height = 1080;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_NV12;
  CHECK(ioctl(one, VIDIOC_S_FMT, &format) == 0);
  struct v4l2_streamparm parameters = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  parameters.parm.capture.timeperframe = (struct v4l2_fract){1, 15};
  CHECK(ioctl(one, VIDIOC_S_PARM, &parameters) == 0);
  memset(&format.fmt, 0, sizeof(format.fmt));
  CHECK(ioctl(two, VIDIOC_G_FMT, &format) == 0 && format.fmt.pix.width == 1920);
  CHECK(format.fmt.pix.pixelformat == V4L2_PIX_FMT_NV12);
  CHECK(ioctl(two, VIDIOC_G_PARM, &parameters) == 0);
  CHECK(parameters.parm.capture.timeperframe.denominator == 15);
  CHECK(ioctl(front, VIDIOC_G_FMT, &format) == 0 && format.fmt.pix.width == 1280);
}

static void priorities(void) {
  const int one = open("/dev/video0", O_RDWR);
  const int two = open("/dev/video0", O_RDWR);
  uint32_t priority = V4L2_PRIORITY_RECORD;
  CHECK(ioctl(one, VIDIOC_S_PRIORITY, &priority) == 0);
  priority = 0;
  CHECK(ioctl(two, VIDIOC_G_PRIORITY, &priority) == 0 && priority == V4L2_PRIORITY_RECORD);
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  CHECK(ioctl(two, VIDIOC_G_FMT, &format) == 0);
  CHECK(ioctl(two, VIDIOC_S_FMT, &format) != 0 && errno == EBUSY);
  CHECK(ioctl(one, VIDIOC_S_FMT, &format) == 0);
  CHECK(close(one) == 0);
  CHECK(ioctl(two, VIDIOC_S_FMT, &format) == 0);
  priority = 77;
  CHECK(ioctl(two, VIDIOC_S_PRIORITY, &priority) != 0 && errno == EINVAL);
}

static void polling(void) {
  const int camera = open("/dev/video0", O_RDWR | O_NONBLOCK);
  startStream(camera, 2);
  for (int i = 0; i < 8; ++i) {
    struct pollfd wanted = {.fd = camera, .events = POLLIN};
    const struct timespec patience = {20, 0};
    struct timeval sameTime = {20, 0};
    fd_set set;
    FD_ZERO(&set);
    FD_SET(camera, &set);
    if (i % 4 == 0) CHECK(select(camera + 1, &set, NULL, NULL, &sameTime) == 1);
    if (i % 4 == 1) CHECK(pselect(camera + 1, &set, NULL, NULL, &patience, NULL) == 1);
    if (i % 4 == 2) CHECK(ppoll(&wanted, 1, &patience, NULL) == 1 && wanted.revents == POLLIN);
    if (i % 4 == 3) {
      const int epoll = epoll_create1(0);
      struct epoll_event event = {.events = EPOLLIN | EPOLLET};
      CHECK(epoll_ctl(epoll, EPOLL_CTL_ADD, camera, &event) == 0);
      CHECK(epoll_pwait(epoll, &event, 1, 20000, NULL) == 1 && close(epoll) == 0);
    }
    // Without a buffer there is nothing to wait for, however late it is.
    struct v4l2_buffer taken[2];
    for (int k = 0; k < 2; ++k) {
      taken[k] = (struct v4l2_buffer){.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
      taken[k].memory = V4L2_MEMORY_MMAP;
      if (k > 0) CHECK(poll(&wanted, 1, 20000) == 1);
      CHECK(ioctl(camera, VIDIOC_DQBUF, &taken[k]) == 0);
    }
    CHECK(poll(&wanted, 1, 0) == 0);
    for (int k = 0; k < 2; ++k) CHECK(ioctl(camera, VIDIOC_QBUF, &taken[k]) == 0);
  }
}

// Closes as programs do that make their system calls themselves; what the number becomes afterwards
// is no camera.
static void closedBehindItsBack(void) {
  const int camera = open("/dev/video0", O_RDWR);
  startStream(camera, 2);
  CHECK(syscall(SYS_close, camera) == 0);
  int ends[2];
  CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0 && ends[0] == camera);
  CHECK(write(ends[1], "text", 4) == 4);
  char text[8];
  CHECK(read(camera, text, sizeof(text)) == 4 && memcmp(text, "text", 4) == 0);
  struct stat status;
  CHECK(fstat(camera, &status) == 0 && S_ISSOCK(status.st_mode));
  // Its buffers do not stay taken.
  const int next = open("/dev/video0", O_RDWR);
  startStream(next, 2);
  CHECK(take(next) == 0);
  CHECK(syscall(SYS_close, next) == 0);
  CHECK(eventfd(7, 0) == next);
  uint64_t number;
  CHECK(read(next, &number, sizeof(number)) == sizeof(number) && number == 7);
  for (int i = 0; i < 2000; ++i) {
    const int each = open("/dev/video1", O_RDWR);
    CHECK(each >= 0 && syscall(SYS_close, each) == 0);
    CHECK(dup2(1, each) == each);
    if (i % 200 == 199) CHECK(syscall(SYS_close_range, each - 100, each, 0) == 0);
  }
}

// In a sandbox that forbids all that is not usual.
static void sandboxedWith(int error) {
  struct sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_writev, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fcntl, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, args[1])),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, F_SETSIG, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (uint32_t)error),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const struct sock_fprog program = {sizeof(filter) / sizeof(filter[0]), filter};
  CHECK(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) exit(77);
  for (int i = 0; i < 3; ++i) {
    const int camera = open("/dev/video0", O_RDWR);
    CHECK(isCamera(camera, 0));
    startStream(camera, 2);
    CHECK(take(camera) == 0 && close(camera) == 0);
  }
}

static void sandboxed(void) { sandboxedWith(EPERM); }
static void sandboxedStrangely(void) { sandboxedWith(EACCES); }

// A child streams on from a descriptor that it was born with, after the parent has gone.
static void inheritedByFork(void) {
  const int camera = open("/dev/video0", O_RDWR);
  startStream(camera, 2);
  CHECK(take(camera) == 0);
  int gone[2];
  CHECK(pipe(gone) == 0);
  const pid_t middle = fork();
  if (middle == 0) {
    const pid_t last = fork();
    if (last == 0) {
      char nothing;
      close(gone[1]);
      CHECK(read(gone[0], &nothing, 1) == 0);
      for (int i = 0; i < 5; ++i) CHECK(take(camera) == 0);
      _exit(0);
    }
    close(gone[1]);
    int status;
    CHECK(waitpid(last, &status, 0) == last && status == 0);
    _exit(0);
  }
  CHECK(close(camera) == 0 && close(gone[1]) == 0);
  int status;
  CHECK(waitpid(middle, &status, 0) == middle && status == 0);
}

static void inheritedByExec(void) {
  CHECK(isCamera(0, 1) && fcntl(0, F_GETFL) >= 0);
  startStream(0, 2);
  CHECK(take(0) == 0 && take(0) == 0);
}

static void readInherited(void) {
  char* picture = malloc(1 << 22);
  CHECK(read(0, picture, 1 << 22) == 1280 * 720 * 3 / 2);
  free(picture);
}

static void replaceBy(const char* self, const char* command) {
  const int camera = open("/dev/video1", O_RDWR);
  CHECK(dup2(camera, 0) == 0);
  execl(self, self, command, (char*)NULL);
  CHECK(false);
}

// Hands a camera to a process that never opened one.
static void handedOver(const char* self) {
  const int camera = open("/dev/video1", O_RDWR);
  int ends[2];
  CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  const pid_t child = fork();
  if (child == 0) {
    CHECK(dup2(ends[1], 0) == 0);
    execl(self, self, "takeOver", (char*)NULL);
    _exit(1);
  }
  char byte = 1;
  struct iovec part = {&byte, 1};
  union {
    struct cmsghdr header;
    char room[CMSG_SPACE(sizeof(int))];
  } control;
  struct msghdr message = {.msg_iov = &part,
                           .msg_iovlen = 1,
                           .msg_control = &control,
                           .msg_controllen = sizeof(control)};
  memset(&control, 0, sizeof(control));
  control.header.cmsg_level = SOL_SOCKET;
  control.header.cmsg_type = SCM_RIGHTS;
  control.header.cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(&control.header), &camera, sizeof(int));
  CHECK(sendmsg(ends[0], &message, 0) == 1);
  int status;
  CHECK(waitpid(child, &status, 0) == child && status == 0);
}

static void takeOver(void) {
  char byte;
  struct iovec part = {&byte, 1};
  union {
    struct cmsghdr header;
    char room[CMSG_SPACE(sizeof(int))];
  } control;
  struct msghdr message = {.msg_iov = &part,
                           .msg_iovlen = 1,
                           .msg_control = &control,
                           .msg_controllen = sizeof(control)};
  CHECK(recvmsg(0, &message, 0) == 1);
  int camera;
  memcpy(&camera, CMSG_DATA(&control.header), sizeof(int));
  CHECK(isCamera(camera, 1));
  startStream(camera, 2);
  CHECK(take(camera) == 0);
}

int main(int count, char** arguments) {
  static const struct {
    const char* name;
    void (*run)(void);
  } commands[] = {
      {"opening", opening},
      {"status", status},
      {"rights", rights},
      {"links", links},
      {"listing", listing},
      {"files", files},
      {"buffers", buffers},
      {"formatIsShared", formatIsShared},
      {"priorities", priorities},
      {"polling", polling},
      {"closedBehindItsBack", closedBehindItsBack},
      {"sandboxed", sandboxed},
      {"sandboxedStrangely", sandboxedStrangely},
      {"inheritedByFork", inheritedByFork},
      {"inheritedByExec", inheritedByExec},
      {"readInherited", readInherited},
      {"takeOver", takeOver},
  };
  const char* command = count > 1 ? arguments[1] : "";
  if (strcmp(command, "execing") == 0) replaceBy(arguments[0], "inheritedByExec");
  if (strcmp(command, "execingReader") == 0) replaceBy(arguments[0], "readInherited");
  if (strcmp(command, "handedOver") == 0) {
    handedOver(arguments[0]);
    return 0;
  }
  for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); ++i) {
    if (strcmp(command, commands[i].name) != 0) continue;
    commands[i].run();
    return 0;
  }
  fprintf(stderr, "calls: unknown command\n");
  return 2;
}
