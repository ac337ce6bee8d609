#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "base/FileDescriptor.h"

namespace lenslark {

/// A file in memory whose content is replaced for each input. It has a path for as long as it
/// lives, and no name that anything could be left behind under.
class PlantedFile {
 public:
  PlantedFile() : file_(::memfd_create("lenslark-fuzz", MFD_CLOEXEC)) {
    if (!file_) std::abort();
    path_ = "/proc/self/fd/" + std::to_string(file_.get());
  }

  const std::string& plant(std::span<const std::uint8_t> content) {
    if (::ftruncate(file_.get(), 0) != 0) std::abort();
    for (std::size_t done = 0; done < content.size();) {
      const ssize_t count = ::pwrite(file_.get(), content.data() + done, content.size() - done,
                                     static_cast<off_t>(done));
      if (count <= 0) std::abort();
      done += static_cast<std::size_t>(count);
    }
    return path_;
  }

 private:
  FileDescriptor file_;
  std::string path_;
};

}  // namespace lenslark
