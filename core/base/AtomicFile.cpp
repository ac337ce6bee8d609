#include "base/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <span>

#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "base/Uuid.h"

namespace lenslark::AtomicFile {
namespace {

/// Removes the temporary file unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path)
      : path_(std::move(path)),
        file_(FileDescriptor::open(path_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  void write(std::string_view bytes) {
    writeAll(file_, std::as_bytes(std::span(bytes)), path_);
    if (::fsync(file_.get()) != 0) throwErrno(path_);
  }

  void renameTo(const std::string& target) {
    if (::rename(path_.c_str(), target.c_str()) != 0) throwErrno(target);
    path_.clear();
  }

 private:
  std::string path_;
  FileDescriptor file_;
};

}  // namespace

void replace(const std::string& path, std::string_view bytes) {
  std::string directory = std::filesystem::path(path).parent_path().string();
  if (directory.empty()) directory = ".";
  TemporaryFile temporary(path + ".tmp-" + Uuid::make());
  temporary.write(bytes);
  temporary.renameTo(path);
  // Some directories cannot be opened or flushed; the rename has happened all the same.
  const FileDescriptor parent = FileDescriptor::tryOpen(directory, O_RDONLY | O_DIRECTORY);
  if (parent) ::fsync(parent.get());
}

}  // namespace lenslark::AtomicFile
