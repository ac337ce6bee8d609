// details.c - a client for the tests of what few programs do with a camera, but a character device
// answers all the same: `details COMMAND`.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/videodev2.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "probe.h"

static void* volatile bad = (void*)8;
static volatile int fewerThanNone = -1;

static bool failsWith(int error, long outcome) { return outcome < 0 && errno == error; }

static void checkIsNoDirectory(const char* path) {
  struct stat status;
  struct statx more;
  char name[PATH_MAX];
  CHECK(failsWith(ENOTDIR, open(path, O_RDWR)));
  CHECK(failsWith(ENOTDIR, stat(path, &status)));
  CHECK(failsWith(ENOTDIR, lstat(path, &status)));
  CHECK(failsWith(ENOTDIR, statx(AT_FDCWD, path, 0, STATX_TYPE, &more)));
  CHECK(failsWith(ENOTDIR, access(path, F_OK)));
  CHECK(failsWith(ENOTDIR, readlink(path, name, sizeof(name))));
  CHECK(!realpath(path, name) && errno == ENOTDIR);
  CHECK(!opendir(path) && errno == ENOTDIR);
}

static void directories(void) {
  checkIsNoDirectory("/dev/video0/");
  checkIsNoDirectory("/dev/video0//.");
  checkIsNoDirectory("/dev/video0/x");
  checkIsNoDirectory("/dev/video0/../null");
  checkIsNoDirectory("/sys/class/video4linux/video0/name/");
  struct stat status;
  const char* link = "/sys/class/video4linux/video0";
  CHECK(lstat(link, &status) == 0 && S_ISLNK(status.st_mode));
  CHECK(lstat("/sys/class/video4linux/video0/", &status) == 0 && S_ISDIR(status.st_mode));
  CHECK(stat("/sys/class/video4linux/../../dev/char/81:1/name", &status) == 0);
  // What is not there leads nowhere.
  CHECK(failsWith(ENOENT, open("/missing/../dev/video0", O_RDWR)));
  CHECK(failsWith(ENOENT, open("/dev/video2/", O_RDWR)));
}

static int countOf(DIR* stream, const char* name) {
  int found = 0;
  CHECK(stream);
  for (const struct dirent* entry; (entry = readdir(stream));) {
    found += strcmp(entry->d_name, name) == 0;
  }
  return found;
}

static void checkWalked(int descriptor, mode_t kind) {
  struct stat status;
  struct statx more;
  struct statfs system;
  CHECK(descriptor >= 0 && fstat(descriptor, &status) == 0 && (status.st_mode & S_IFMT) == kind);
  CHECK(statx(descriptor, "", AT_EMPTY_PATH, STATX_TYPE, &more) == 0);
  CHECK((more.stx_mode & S_IFMT) == kind);
  CHECK(fstatfs(descriptor, &system) == 0 && system.f_type == 0x62656572);  // sysfs
}

// Goes to a camera name by name, as libudev does.
static void walking(void) {
  const int step = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  const int classes = open("/sys/class", step | O_DIRECTORY);
  if (classes < 0) exit(77);
  const int class = openat(classes, "video4linux", step);
  checkWalked(class, S_IFDIR);
  const int link = openat(class, "video1", step);
  checkWalked(link, S_IFLNK);
  char name[PATH_MAX];
  const char* wanted = "/sys/devices/virtual/video4linux/video1";
  CHECK(readlinkat(class, "video1", name, sizeof(name)) == (ssize_t)strlen(wanted));
  CHECK(memcmp(name, wanted, strlen(wanted)) == 0);
  CHECK(failsWith(ELOOP, openat(class, "video1", O_RDONLY | O_NOFOLLOW)));
  CHECK(failsWith(ENOTDIR, openat(class, "video1", step | O_DIRECTORY)));
  CHECK(failsWith(EISDIR, openat(class, "video1", O_RDWR)));
  const int devices = open("/sys/devices/virtual/video4linux", step);
  const int device = openat(devices, "video1", step);
  checkWalked(device, S_IFDIR);
  CHECK(faccessat(device, "uevent", R_OK, 0) == 0);
  CHECK(failsWith(ENOENT, faccessat(device, "class", F_OK, 0)));
  CHECK(readlink("/sys/class/video4linux/video1/subsystem", name, sizeof(name)) == 22);
  CHECK(memcmp(name, "/sys/class/video4linux", 22) == 0);
  CHECK(access("/sys/class/video4linux/video1/subsystem/video0/subsystem/video1/name", R_OK) == 0);
  CHECK(failsWith(ENOENT, access("/sys/class/video4linux/video1/subsystem/name", R_OK)));
  // Copies are the same, and what is closed is nothing of ours any more.
  const int copy = dup(device);
  checkWalked(fcntl(copy, F_DUPFD_CLOEXEC, 0), S_IFDIR);
  CHECK(close(device) == 0 && faccessat(copy, "uevent", R_OK, 0) == 0);
  CHECK(close(copy) == 0 && dup2(classes, copy) == copy);
  CHECK(failsWith(ENOENT, faccessat(copy, "uevent", R_OK, 0)));
}

static void folders(void) {
  DIR* stream = opendir("/sys/class");
  if (!stream) exit(77);
  CHECK(countOf(stream, "video4linux") == 1);
  CHECK(closedir(stream) == 0);
  const int descriptor = open("/sys/class/video4linux/video0", O_RDONLY | O_DIRECTORY);
  stream = fdopendir(descriptor);
  CHECK(countOf(stream, "subsystem") == 1);
  rewinddir(stream);
  CHECK(countOf(stream, "net") == 0);
  rewinddir(stream);
  long last = 0;
  for (long at = telldir(stream); readdir(stream); at = telldir(stream)) last = at;
  seekdir(stream, last);
  CHECK(readdir(stream) && !readdir(stream));
  CHECK(closedir(stream) == 0 && failsWith(EBADF, fcntl(descriptor, F_GETFD)));
  // More of them than are kept in mind, closed without notice: they are forgotten.
  for (int i = 0; i < 200; ++i) {
    const int one = open("/sys/class/video4linux", O_RDONLY | O_DIRECTORY);
    CHECK(one >= 0 && syscall(SYS_close, one) == 0);
  }
}

// What udev would have noted of a camera.
static void database(void) {
  char line[128];
  int found = 0;
  FILE* file = fopen("/run/udev/data/c81:1", "re");
  CHECK(file);
  while (fgets(line, sizeof(line), file)) {
    found += strcmp(line, "E:ID_V4L_PRODUCT=Lenslark Camera (Front)\n") == 0 ||
             strcmp(line, "E:ID_V4L_VERSION=2\n") == 0;
  }
  CHECK(found == 2 && fclose(file) == 0);
  CHECK(!fopen("/run/udev/data/c81:9", "re") && errno == ENOENT);
  CHECK(failsWith(ENOTDIR, access("/run/udev/data/c81:1/x", F_OK)));
  char name[PATH_MAX];
  CHECK(realpath("/run/udev/data/c81:1", name) && strcmp(name, "/run/udev/data/c81:1") == 0);
}

// True if all that a program asks of a path is answered as for the camera of that number.
static bool isCamera(const char* path, unsigned number) {
  struct stat status;
  struct v4l2_capability capability;
  char wanted[32];
  char name[PATH_MAX];
  snprintf(wanted, sizeof(wanted), "/dev/video%u", number);
  const int descriptor = open(path, O_RDWR);
  const bool opened = descriptor >= 0 && ioctl(descriptor, VIDIOC_QUERYCAP, &capability) == 0;
  if (descriptor >= 0) close(descriptor);
  return opened && stat(path, &status) == 0 && S_ISCHR(status.st_mode) &&
         status.st_rdev == makedev(81, number) && access(path, R_OK | W_OK) == 0 &&
         realpath(path, name) && strcmp(name, wanted) == 0;
}

// In the test's own directory.
static void links(void) {
  const char* here = getenv("TMPDIR");
  static const char* const names[][2] = {
      {"absolute", "/dev/video0"}, {"chained", "inside/../absolute"},
      {"folder", "/dev"},          {"inside/up", "../folder/video1"},
      {"inside/further", "./up"},  {"nowhere", "missing"},
      {"circle", "circle"},        {"number", "/dev/char/81:1"},
      {"slashed", "/dev/video0/"}, {"name", "/sys/class/video4linux/video1/name"},
  };
  enum { count = sizeof(names) / sizeof(names[0]) };
  CHECK(here && chdir(here) == 0 && mkdir("inside", 0700) == 0);
  for (int i = 0; i < count; ++i) CHECK(symlink(names[i][1], names[i][0]) == 0);
  CHECK(isCamera("absolute", 0) && isCamera("chained", 0) && isCamera("folder/video0", 0));
  CHECK(isCamera("inside/up", 1) && isCamera("./inside/further", 1) && isCamera("number", 1));
  char whole[PATH_MAX + 16];
  snprintf(whole, sizeof(whole), "%s/inside/up", here);
  CHECK(isCamera(whole, 1));
  const int inside = open("inside", O_RDONLY | O_DIRECTORY);
  const int camera = openat(inside, "further", O_RDWR);
  struct v4l2_capability capability;
  CHECK(ioctl(camera, VIDIOC_QUERYCAP, &capability) == 0);
  FILE* name = fopen("name", "r");
  CHECK(name && fclose(name) == 0);
  // The links themselves are what they are.
  struct stat status;
  CHECK(lstat("absolute", &status) == 0 && S_ISLNK(status.st_mode));
  CHECK(readlink("absolute", whole, sizeof(whole)) == 11);
  CHECK(failsWith(ELOOP, open("absolute", O_RDWR | O_NOFOLLOW)));
  CHECK(failsWith(EEXIST, open("absolute", O_RDWR | O_CREAT | O_EXCL, 0600)));
  CHECK(failsWith(ENOTDIR, open("slashed", O_RDWR)));
  CHECK(failsWith(ENOENT, open("nowhere", O_RDWR)));
  CHECK(failsWith(ELOOP, open("circle", O_RDWR)));
  // A program that creates what is missing gets the camera, too, and makes no file of its name.
  CHECK(ioctl(creat("absolute", 0600), VIDIOC_QUERYCAP, &capability) == 0);
  CHECK(open("nowhere", O_RDWR | O_CREAT, 0600) >= 0 && access("missing", F_OK) == 0);
}

static void seeking(void) {
  const int camera = open("/dev/video0", O_RDWR);
  CHECK(failsWith(ESPIPE, lseek(camera, 0, SEEK_CUR)));
  CHECK(failsWith(ESPIPE, lseek64(camera, 4, SEEK_SET)));
  CHECK(close(camera) == 0 && failsWith(EBADF, lseek(camera, 0, SEEK_CUR)));
}

static void scattered(void) {
  enum { pictureSize = 640 * 480 * 2, firstSize = 1000 };
  const int camera = open("/dev/video0", O_RDONLY);
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  format.fmt.pix.width = 640;
  format.fmt.pix.height = 480;
  format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
  CHECK(ioctl(camera, VIDIOC_S_FMT, &format) == 0 && format.fmt.pix.sizeimage == pictureSize);
  uint8_t* whole = calloc(1, 2 * pictureSize);
  uint8_t* apart = calloc(1, 2 * pictureSize);
  CHECK(read(camera, whole, pictureSize) == pictureSize);
  // A part that is not filled is the last.
  const struct iovec parts[] = {
      {apart, firstSize}, {apart + firstSize, 2 * pictureSize - firstSize}, {apart, 1}};
  CHECK(readv(camera, parts, 3) == pictureSize && memcmp(whole, apart, pictureSize) == 0);
  const struct iovec halfBad[] = {{apart, firstSize}, {bad, firstSize}};
  CHECK(readv(camera, halfBad, 2) == firstSize);
  CHECK(failsWith(EFAULT, readv(camera, bad, 1)));
  CHECK(failsWith(EINVAL, readv(camera, parts, fewerThanNone)));
  CHECK(readv(camera, parts, 0) == 0);
  free(whole);
  free(apart);
}

static void modes(void) {
  char byte;
  const int reading = open("/dev/video0", O_RDONLY | O_NONBLOCK);
  const int writing = open("/dev/video0", O_WRONLY);
  const int both = open("/dev/video0", O_RDWR);
  CHECK(fcntl(reading, F_GETFL) == (O_RDONLY | O_NONBLOCK));
  CHECK((fcntl(writing, F_GETFL) & O_ACCMODE) == O_WRONLY);
  CHECK((fcntl(both, F_GETFL) & O_ACCMODE) == O_RDWR);
  CHECK((fcntl(dup(writing), F_GETFL) & O_ACCMODE) == O_WRONLY);
  CHECK(failsWith(EBADF, read(writing, &byte, 1)));
  const struct iovec part = {&byte, 1};
  CHECK(failsWith(EBADF, readv(writing, &part, 1)));
  CHECK(failsWith(EINVAL, write(both, &byte, 1)));
  // Settings are made through any.
  struct v4l2_format format = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE};
  CHECK(ioctl(writing, VIDIOC_S_FMT, &format) == 0);
  CHECK(read(both, &byte, 1) == 1);
}

// A buffer is taken by its type alone.
static void taking(void) {
  const int camera = open("/dev/video0", O_RDWR);
  struct v4l2_requestbuffers request = {
      .count = 1, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera, VIDIOC_REQBUFS, &request) == 0);
  struct v4l2_buffer buffer = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) == 0 && ioctl(camera, VIDIOC_STREAMON, &type) == 0);
  memset(&buffer, 0, sizeof(buffer));
  CHECK(failsWith(EINVAL, ioctl(camera, VIDIOC_DQBUF, &buffer)));
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera, VIDIOC_DQBUF, &buffer) == 0 && buffer.memory == V4L2_MEMORY_MMAP);
}

static int countDescriptors(void) {
  DIR* stream = opendir("/proc/self/fd");
  CHECK(stream);
  int found = 0;
  while (readdir(stream)) ++found;
  closedir(stream);
  return found;
}

static struct v4l2_exportbuffer exportOf(uint32_t index, uint32_t flags) {
  return (struct v4l2_exportbuffer){
      .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .index = index, .flags = flags};
}

static uint8_t* mapped(int descriptor, size_t length) {
  void* memory = mmap(NULL, length, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  CHECK(memory != MAP_FAILED);
  return memory;
}

// A buffer's memory can be had as a descriptor, which another process may map.
static void exporting(void) {
  const int before = countDescriptors();
  const int camera = open("/dev/video0", O_RDWR);
  struct v4l2_requestbuffers request = {
      .count = 2, .type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  struct v4l2_exportbuffer exported = exportOf(0, O_CLOEXEC | O_RDWR);
  CHECK(failsWith(EINVAL, ioctl(camera, VIDIOC_EXPBUF, &exported)));
  CHECK(ioctl(camera, VIDIOC_REQBUFS, &request) == 0);
  struct v4l2_buffer buffer = {.type = V4L2_BUF_TYPE_VIDEO_CAPTURE, .memory = V4L2_MEMORY_MMAP};
  CHECK(ioctl(camera, VIDIOC_QUERYBUF, &buffer) == 0);
  CHECK(ioctl(camera, VIDIOC_EXPBUF, &exported) == 0);
  CHECK(fcntl(exported.fd, F_GETFD) == FD_CLOEXEC);
  CHECK(lseek(exported.fd, 0, SEEK_END) >= (off_t)buffer.length);
  CHECK(failsWith(EPERM, ftruncate(exported.fd, 0)));
  struct v4l2_exportbuffer again = exportOf(0, 0);
  CHECK(ioctl(camera, VIDIOC_EXPBUF, &again) == 0 && fcntl(again.fd, F_GETFD) == 0);
  struct v4l2_exportbuffer wrong = exportOf(2, 0);
  CHECK(failsWith(EINVAL, ioctl(camera, VIDIOC_EXPBUF, &wrong)));
  wrong = exportOf(0, O_NONBLOCK);
  CHECK(failsWith(EINVAL, ioctl(camera, VIDIOC_EXPBUF, &wrong)));
  wrong = exportOf(0, 0);
  wrong.plane = 1;
  CHECK(failsWith(EINVAL, ioctl(camera, VIDIOC_EXPBUF, &wrong)));
  // The picture is seen through all of them, and through the camera's own mapping.
  const uint8_t* first = mapped(exported.fd, buffer.length);
  const uint8_t* second = mapped(again.fd, buffer.length);
  const uint8_t* own = mapped(camera, buffer.length);
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  CHECK(ioctl(camera, VIDIOC_QBUF, &buffer) == 0 && ioctl(camera, VIDIOC_STREAMON, &type) == 0);
  CHECK(ioctl(camera, VIDIOC_DQBUF, &buffer) == 0 && first[buffer.length - 1] != 0);
  CHECK(memcmp(first, own, buffer.length) == 0 && memcmp(second, own, buffer.length) == 0);
  // What is mapped does not move any more.
  const off_t offset = 64 << 20;
  CHECK(mmap(NULL, 4096, PROT_READ, MAP_SHARED, camera, offset) != MAP_FAILED);
  wrong = exportOf(1, 0);
  CHECK(failsWith(EBUSY, ioctl(camera, VIDIOC_EXPBUF, &wrong)));
  // It outlives the buffer, and nothing else is left behind.
  const uint8_t last = first[buffer.length - 1];
  CHECK(close(camera) == 0 && first[buffer.length - 1] == last);
  CHECK(close(exported.fd) == 0 && close(again.fd) == 0 && countDescriptors() == before);
}

static void* functionOf(void* library, const char* name) {
  void* symbol = dlsym(library, name);
  if (!symbol) fprintf(stderr, "libv4l2 has no %s\n", name);
  CHECK(symbol);
  return symbol;
}

// Some programs (VLC is one) load libv4l2 themselves and hand it what they opened.
static void libraryLoaded(void) {
  void* library = dlopen("libv4l2.so.0", RTLD_LAZY | RTLD_LOCAL);
  if (!library) exit(77);
  int (*control)(int, unsigned long, ...);
  int (*adopt)(int, int);
  ssize_t (*get)(int, void*, size_t);
  ssize_t (*put)(int, const void*, size_t);
  *(void**)&control = functionOf(library, "v4l2_ioctl");
  *(void**)&adopt = functionOf(library, "v4l2_fd_open");
  *(void**)&get = functionOf(library, "v4l2_read");
  *(void**)&put = functionOf(library, "v4l2_write");
  const int camera = open("/dev/video0", O_RDWR);
  struct v4l2_capability capability;
  CHECK(adopt(camera, 0) == camera && control(camera, VIDIOC_QUERYCAP, &capability) == 0);
  CHECK(strcmp((char*)capability.card, "Lenslark Camera") == 0);
  char bytes[2];
  CHECK(get(camera, bytes, sizeof(bytes)) == sizeof(bytes));
  CHECK(failsWith(EINVAL, put(camera, bytes, sizeof(bytes))));
  // Other devices are left to the real library.
  const int other = open("/dev/zero", O_RDONLY);
  CHECK(get(other, bytes, sizeof(bytes)) == sizeof(bytes) && bytes[0] == 0);
  CHECK(control(other, VIDIOC_QUERYCAP, &capability) != 0);
  CHECK(dlclose(library) == 0 && control(camera, VIDIOC_QUERYCAP, &capability) == 0);
}

// A library that only this program's own search path leads to.
static void searchPath(void) {
  void* library = dlopen("libinjector-found.so", RTLD_NOW);
  void* symbol = library ? dlsym(library, "injectorFound") : NULL;
  CHECK(symbol);
}

int main(int count, char** arguments) {
  static const struct {
    const char* name;
    void (*run)(void);
  } commands[] = {
      {"directories", directories},
      {"links", links},
      {"seeking", seeking},
      {"scattered", scattered},
      {"modes", modes},
      {"taking", taking},
      {"libraryLoaded", libraryLoaded},
      {"searchPath", searchPath},
      {"walking", walking},
      {"folders", folders},
      {"database", database},
      {"exporting", exporting},
  };
  for (size_t i = 0; count > 1 && i < sizeof(commands) / sizeof(commands[0]); ++i) {
    if (strcmp(arguments[1], commands[i].name) != 0) continue;
    commands[i].run();
    return 0;
  }
  fprintf(stderr, "details: unknown command\n");
  return 2;
}
