#include "base/WholeFile.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/PosixError.h"

namespace lenslark {

FileDescriptor openRegularFile(const std::string& path) {
  FileDescriptor file = FileDescriptor::tryOpen(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file) {
    const bool absent = errno == ENOENT || errno == ENOTDIR || errno == ELOOP || errno == ENXIO ||
                        errno == ENAMETOOLONG;
    if (absent) return {};
    throwErrno(path);
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throwErrno(path);
  return S_ISREG(status.st_mode) ? std::move(file) : FileDescriptor();
}

void flush(const FileDescriptor& file, const std::string& what) {
  while (::fsync(file.get()) != 0) {
    if (errno != EINTR) throwErrno(what);
  }
}

void leaveDescriptorsForOthers(const FileDescriptor& file, const std::string& what) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t leftForOthers = std::min<rlim_t>(16, limit.rlim_cur / 4);
  // The lowest number that is free is given out: below this one, all are taken.
  if (static_cast<rlim_t>(file.get()) + leftForOthers >= limit.rlim_cur) {
    throw posixError(EMFILE, what);
  }
}

bool isShortage(int errorNumber) noexcept {
  return errorNumber == EMFILE || errorNumber == ENFILE || errorNumber == ENOMEM ||
         errorNumber == ENOSPC || errorNumber == EIO;
}

}  // namespace lenslark
