#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "codecs/image/VipsLibrary.h"

namespace lenslark {

/// A picture's encoded bytes, in a regular file that is opened once or in memory. libvips reads
/// the file through calls, never through a mapping, which would end the process when somebody
/// shortens the file meanwhile.
class PictureSource {
 public:
  /// Nothing when it is no readable regular file. Never waits for a writer of a FIFO.
  static std::optional<PictureSource> open(const std::string& path);
  /// The bytes must outlive the source.
  explicit PictureSource(std::span<const std::byte> bytes) : bytes_(bytes) {}

  /// A new reader at the start, which must not outlive this source.
  VipsSourcePtr makeReader() const;

  /// All of it; less when the file is being shortened. **Fails** with std::bad_alloc.
  std::vector<std::byte> contents() const;

  std::size_t size() const noexcept { return size_; }

  /// The file; invalid for bytes in memory.
  const FileDescriptor& file() const noexcept { return file_; }

 private:
  explicit PictureSource(FileDescriptor file, std::size_t size)
      : file_(std::move(file)), size_(size) {}

  FileDescriptor file_;
  std::span<const std::byte> bytes_;
  std::size_t size_ = bytes_.size();
};

}  // namespace lenslark
