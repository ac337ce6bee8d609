#pragma once

#include <cstddef>

#include "base/FileDescriptor.h"

namespace lenslark {

/// A shared mapping of the first bytes of an open file. The file must stay at least that long
/// while it is mapped: touching a page past its end is a SIGBUS.
class MappedFile {
 public:
  enum class Access { read, readWrite };

  MappedFile() noexcept = default;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  ~MappedFile();

  /// **Fails** with std::system_error. The descriptor may be closed afterwards.
  static MappedFile map(const FileDescriptor& file, std::size_t size, Access access);

  std::byte* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }

 private:
  MappedFile(std::byte* data, std::size_t size) noexcept : data_(data), size_(size) {}

  std::byte* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace lenslark
