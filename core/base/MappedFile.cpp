#include "base/MappedFile.h"

#include <sys/mman.h>

#include <utility>

#include "base/PosixError.h"

namespace lenslark {

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

MappedFile::~MappedFile() {
  if (data_ != nullptr) ::munmap(data_, size_);
}

MappedFile MappedFile::map(const FileDescriptor& file, std::size_t size, Access access) {
  const int protection = access == Access::read ? PROT_READ : PROT_READ | PROT_WRITE;
  void* address = ::mmap(nullptr, size, protection, MAP_SHARED, file.get(), 0);
  if (address == MAP_FAILED) throwErrno("mmap");
  return MappedFile(static_cast<std::byte*>(address), size);
}

}  // namespace lenslark
