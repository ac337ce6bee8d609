#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "base/Error.h"
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

namespace {

bool waitForRoom(int file) {
  pollfd output{.fd = file, .events = POLLOUT, .revents = 0};
  return ::poll(&output, 1, -1) > 0 || errno == EINTR;
}

}  // namespace

void writeAll(const FileDescriptor& file, std::span<const std::byte> bytes,
              const std::string& what) {
  writeAll(file.get(), bytes, what);
}

void writeAll(int file, std::span<const std::byte> bytes, const std::string& what) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR || (errno == EAGAIN && waitForRoom(file))) continue;
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

std::string readRegularFile(const FileDescriptor& file, std::size_t maxSize,
                            const std::string& what) {
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throwErrno(what);
  if (!S_ISREG(status.st_mode)) throw Error(what + ": not a regular file");
  const auto tooLarge = [&] {
    return Error(fmt::format("{}: larger than {} bytes", what, maxSize));
  };
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > maxSize) throw tooLarge();
  // One byte more than its size tells whether the file is growing, or never knew its size.
  std::string content(std::min(std::max<std::size_t>(size, 4096), maxSize) + 1, '\0');
  std::size_t filled = 0;
  for (;;) {
    const ssize_t count = readAt(file, std::as_writable_bytes(std::span(content)).subspan(filled),
                                 static_cast<off_t>(filled));
    if (count < 0) throwErrno(what);
    filled += static_cast<std::size_t>(count);
    if (filled < content.size()) break;
    if (filled > maxSize) throw tooLarge();
    content.resize(std::min(2 * content.size(), maxSize + 1));
  }
  content.resize(filled);
  return content;
}

}  // namespace lenslark
