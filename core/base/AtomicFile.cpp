#include "base/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <span>

#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "base/Uuid.h"
#include "base/WholeFile.h"

namespace lenslark::AtomicFile {
namespace {

constexpr std::string_view temporaryMark = ".tmp-";

/// Removes the temporary file unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& target)
      : target_(target),
        path_(target + std::string(temporaryMark) + Uuid::make()),
        file_(FileDescriptor::tryOpen(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666)) {
    if (!file_) throwErrno(target_);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  void write(std::string_view bytes) {
    writeAll(file_, std::as_bytes(std::span(bytes)), target_);
    flush(file_, target_);
  }

  void putInPlace() {
    if (::rename(path_.c_str(), target_.c_str()) != 0) throwErrno(target_);
    path_.clear();
  }

 private:
  const std::string target_;
  std::string path_;
  FileDescriptor file_;
};

}  // namespace

void replace(const std::string& path, std::string_view bytes) {
  std::string directory = std::filesystem::path(path).parent_path().string();
  if (directory.empty()) directory = ".";
  TemporaryFile temporary(path);
  temporary.write(bytes);
  temporary.putInPlace();
  flushDirectory(directory);
}

void flushDirectory(const std::filesystem::path& directory) noexcept {
  const FileDescriptor open = FileDescriptor::tryOpen(directory.native(), O_RDONLY | O_DIRECTORY);
  if (open) ::fsync(open.get());
}

void removeAbandoned(const std::filesystem::path& directory, std::string_view name) {
  std::error_code error;
  for (auto entry = std::filesystem::directory_iterator(directory, error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string found = entry->path().filename().string();
    const std::size_t mark = found.rfind(temporaryMark);
    if (mark == std::string::npos ||
        !Uuid::isWellFormed(found.substr(mark + temporaryMark.size()))) {
      continue;
    }
    if (name.empty() || found.substr(0, mark) == name) ::unlink(entry->path().c_str());
  }
}

}  // namespace lenslark::AtomicFile
