#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string>

namespace lenslark {

/// Owns one open descriptor and closes it.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  ~FileDescriptor() { reset(); }

  /// Opens with O_CLOEXEC added, again after an interruption. **Fails** with std::system_error
  /// that names the path.
  static FileDescriptor open(const std::string& path, int flags, mode_t mode = 0);
  /// As `open`, but an invalid descriptor (and errno) tells the failure.
  static FileDescriptor tryOpen(const std::string& path, int flags, mode_t mode = 0) noexcept;

  int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  int release() noexcept;
  void reset() noexcept;

 private:
  int fd_ = -1;
};

/// Writes all bytes, across short writes and interruptions; waits where the descriptor does not
/// wait by itself. **Fails** with std::system_error that names `what`.
void writeAll(const FileDescriptor& file, std::span<const std::byte> bytes,
              const std::string& what);
/// The same for a descriptor that nobody owns, as standard output's.
void writeAll(int file, std::span<const std::byte> bytes, const std::string& what);

/// Reads up to `buffer.size()` bytes at `offset`, fewer only at the end of the file. Returns how
/// many, or -1 with errno.
ssize_t readAt(const FileDescriptor& file, std::span<std::byte> buffer, off_t offset) noexcept;

/// The whole of a file. **Fails** with std::system_error that names the path.
std::string readFile(const std::string& path);

/// The whole of an open file, which `what` names. **Fails** with Error unless it is a regular file
/// of at most `maxSize` bytes (it was opened with O_NONBLOCK, lest a pipe hold the caller up), and
/// with std::system_error.
std::string readRegularFile(const FileDescriptor& file, std::size_t maxSize,
                            const std::string& what);

}  // namespace lenslark
