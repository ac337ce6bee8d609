#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "base/FileDescriptor.h"
#include "base/MappedFile.h"
#include "feeds/FrameFileOpening.h"
#include "graphics/PixelBuffer.h"

namespace lenslark::bench {

/// In memory: on a disk, the writing back of pages is what would be measured.
inline std::string memoryPath(const std::string& name) {
  return "/dev/shm/lenslark-bench-" + std::to_string(::getpid()) + "-" + name;
}

/// Two frames of plain shared memory, written in turn as a feed's slots are: the peer of a feed.
class PlainSlots {
 public:
  explicit PlainSlots(Size size)
      : bytes_(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4) {
    const std::string path = memoryPath("plain");
    const FileDescriptor file = FrameFileOpening::openPrivate(path);
    ::unlink(path.c_str());
    memory_ = FrameFileOpening::mapWhole(file, path, 2 * bytes_, {{0, 2 * bytes_}});
  }

  void copy(const PixelBuffer& picture) {
    std::memcpy(memory_.data() + front_ * bytes_, picture.view().data, bytes_);
    benchmark::ClobberMemory();
    front_ = 1 - front_;
  }

 private:
  std::size_t bytes_;
  MappedFile memory_;
  std::size_t front_ = 0;
};

}  // namespace lenslark::bench
