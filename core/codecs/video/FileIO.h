#pragma once

#include <string>

#include "base/FileDescriptor.h"
#include "codecs/video/Patience.h"

extern "C" {
#include <libavformat/avio.h>
}

namespace lenslark::video {

/// Lets libavformat read one open file and nothing else: what the file held when it was opened, so
/// that one which grows faster than it is read has an end.
/// **Fails** with Error when the path is no regular file that can be read.
class FileIO {
 public:
  explicit FileIO(const std::string& path);
  ~FileIO();
  FileIO(const FileIO&) = delete;
  FileIO& operator=(const FileIO&) = delete;

  AVIOContext* context() const noexcept { return context_; }

  /// So many seconds from now on reading fails; never before.
  void setPatience(double seconds) noexcept;
  bool overdue() noexcept;

 private:
  static int read(void* self, std::uint8_t* buffer, int size) noexcept;
  static std::int64_t seek(void* self, std::int64_t offset, int whence) noexcept;

  FileDescriptor file_;
  std::int64_t size_ = 0;
  std::int64_t position_ = 0;
  Patience patience_;
  AVIOContext* context_ = nullptr;
};

}  // namespace lenslark::video
