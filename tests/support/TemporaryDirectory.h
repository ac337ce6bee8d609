#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "base/PosixError.h"

namespace lenslark {

/// A fresh directory of a test's own, removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "lenslark-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throwErrno(name);
    path_ = std::filesystem::canonical(name);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  /// Writes a file, with the directories above it, and returns its path.
  std::string write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file.string();
  }

  /// Writes a file that can be executed.
  std::string writeProgram(std::string_view name, std::string_view text) const {
    const std::string file = write(name, text);
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace lenslark
