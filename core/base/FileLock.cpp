#include "base/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "base/PosixError.h"

namespace lenslark {

FileLock::FileLock(const std::string& path)
    : file_(FileDescriptor::open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600)) {
  while (::flock(file_.get(), LOCK_EX) != 0) {
    if (errno != EINTR) throwErrno(path);
  }
}

}  // namespace lenslark
