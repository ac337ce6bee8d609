#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "base/PosixError.h"

namespace lenslark {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    reset();
    fd_ = other.release();
  }
  return *this;
}

FileDescriptor FileDescriptor::tryOpen(const std::string& path, int flags, mode_t mode) noexcept {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return FileDescriptor(fd);
}

FileDescriptor FileDescriptor::open(const std::string& path, int flags, mode_t mode) {
  FileDescriptor file = tryOpen(path, flags, mode);
  if (!file) throwErrno(path);
  return file;
}

int FileDescriptor::release() noexcept { return std::exchange(fd_, -1); }

void FileDescriptor::reset() noexcept {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

void writeAll(const FileDescriptor& file, std::span<const std::byte> bytes,
              const std::string& what) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file.get(), bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throwErrno(what);
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

ssize_t readAt(const FileDescriptor& file, std::span<std::byte> buffer, off_t offset) noexcept {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t count = ::pread(file.get(), buffer.data() + done, buffer.size() - done,
                                  offset + static_cast<off_t>(done));
    if (count < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

std::string readFile(const std::string& path) {
  const FileDescriptor file = FileDescriptor::open(path, O_RDONLY | O_NONBLOCK);
  std::string content;
  std::array<char, 65536> chunk;
  for (;;) {
    const ssize_t count = ::read(file.get(), chunk.data(), chunk.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      throwErrno(path);
    }
    if (count == 0) return content;
    content.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace lenslark
