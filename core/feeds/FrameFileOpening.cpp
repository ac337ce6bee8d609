#include "feeds/FrameFileOpening.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/PosixError.h"
#include "base/WholeFile.h"

namespace lenslark::FrameFileOpening {
namespace {

// Non-blocking, so that a FIFO at the path is opened at once, looked at and removed.
constexpr int openFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

std::string userName(uid_t user) {
  std::array<char, 4096> memory;
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(user, &entry, memory.data(), memory.size(), &found) == 0 && found != nullptr) {
    return found->pw_name;
  }
  return fmt::format("user {}", user);
}

/// What could not be removed, for the person who has to do it.
std::string describeObstacle(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return path;
  if (S_ISDIR(status.st_mode)) {
    return fmt::format("{}: it is a directory of {} where a frame file belongs; remove it", path,
                       userName(status.st_uid));
  }
  return fmt::format("{}: it belongs to {} and cannot be replaced; have it removed", path,
                     userName(status.st_uid));
}

/// Planting a device takes root's rights. One at this path was named on purpose, as /dev/null is
/// for no feed at all, and root's server must not put a file in its place.
void refuseDevice(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISCHR(status.st_mode) && !S_ISBLK(status.st_mode)) return;
  throw posixError(
      EINVAL, path + ": it is a device, which is never replaced; choose another path for the feed");
}

void setLength(const FileDescriptor& file, const std::string& path, std::size_t size) {
  while (::ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
    if (errno != EINTR) throwErrno(path);
  }
}

}  // namespace

FileDescriptor openPrivate(const std::string& path) {
  refuseDevice(path);
  FileDescriptor file = FileDescriptor::tryOpen(path, openFlags, ownerOnly);
  if (file) {
    struct stat status {};
    if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
        status.st_uid == ::getuid() && status.st_nlink == 1) {
      if (::fchmod(file.get(), ownerOnly) != 0) throwErrno(path);
      return file;
    }
    file.reset();
  } else if (isShortage(errno)) {
    throwErrno(path);
  }

  const int unlinkError = ::unlink(path.c_str()) == 0 ? 0 : errno;
  file = FileDescriptor::tryOpen(path, openFlags | O_EXCL, ownerOnly);
  if (file) return file;
  const int openError = errno;
  // "File exists" alone would not say why it still does.
  if (openError == EEXIST && unlinkError != 0) {
    throw posixError(unlinkError, describeObstacle(path));
  }
  throw posixError(openError, path);
}

MappedFile mapWhole(const FileDescriptor& file, const std::string& path, std::size_t size,
                    std::initializer_list<Extent> reserved) {
  struct stat before {};
  if (::fstat(file.get(), &before) != 0) throwErrno(path);
  try {
    leaveDescriptorsForOthers(file, path);
    setLength(file, path, size);
    for (const Extent& part : reserved) {
      if (const int error = reserve(file, part); error != 0) throw posixError(error, path);
    }
    return MappedFile::map(file, size, MappedFile::Access::readWrite);
  } catch (const std::system_error& error) {
    if (before.st_size == 0) ::unlink(path.c_str());
    throw posixError(error.code().value(), path);
  }
}

int reserve(const FileDescriptor& file, const Extent& part) noexcept {
  const auto offset = static_cast<off_t>(part.offset);
  while (::fallocate(file.get(), 0, offset, static_cast<off_t>(part.length)) != 0) {
    if (errno == EOPNOTSUPP || errno == ENOSYS) return 0;
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace lenslark::FrameFileOpening
