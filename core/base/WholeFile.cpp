#include "base/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

bool isShortage(int errorNumber) noexcept {
  return errorNumber == EMFILE || errorNumber == ENFILE || errorNumber == ENOMEM ||
         errorNumber == ENOSPC || errorNumber == EIO;
}

}  // namespace lenslark
