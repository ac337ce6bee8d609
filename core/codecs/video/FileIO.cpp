#include "codecs/video/FileIO.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <span>

#include "base/Clock.h"
#include "base/Error.h"
#include "base/WholeFile.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace lenslark::video {

FileIO::FileIO(const std::string& path)
    : file_(FileDescriptor::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY)) {
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw Error(path + " is not a readable file");
  }
  leaveDescriptorsForOthers(file_, path);
  size_ = status.st_size;

  constexpr int bufferSize = 64 * 1024;
  auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
  if (buffer == nullptr) throw std::bad_alloc();
  context_ = avio_alloc_context(buffer, bufferSize, 0, this, &FileIO::read, nullptr, &FileIO::seek);
  if (context_ == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
}

FileIO::~FileIO() {
  av_freep(&context_->buffer);  // libavformat may have put another one in place of ours
  avio_context_free(&context_);
}

void FileIO::setPatience(double seconds) noexcept {
  patience_.begin(Clock::uptimeSeconds(), seconds);
}

bool FileIO::overdue() noexcept { return patience_.isOver(Clock::uptimeSeconds()); }

int FileIO::read(void* self, std::uint8_t* buffer, int size) noexcept {
  auto& io = *static_cast<FileIO*>(self);
  if (io.overdue()) return AVERROR_EXIT;
  if (io.position_ >= io.size_) return AVERROR_EOF;
  const auto wanted = std::min<std::int64_t>(size, io.size_ - io.position_);
  const auto bytes = std::as_writable_bytes(std::span(buffer, static_cast<std::size_t>(wanted)));
  const ssize_t count = readAt(io.file_, bytes, io.position_);
  if (count < 0) return AVERROR(errno);
  if (count == 0) return AVERROR_EOF;
  io.position_ += count;
  return static_cast<int>(count);
}

std::int64_t FileIO::seek(void* self, std::int64_t offset, int whence) noexcept {
  auto& io = *static_cast<FileIO*>(self);
  if ((whence & AVSEEK_SIZE) != 0) return io.size_;
  switch (whence & ~AVSEEK_FORCE) {
    case SEEK_SET:
      break;
    case SEEK_CUR:
      offset += io.position_;
      break;
    case SEEK_END:
      offset += io.size_;
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (offset < 0) return AVERROR(EINVAL);
  io.position_ = offset;
  return offset;
}

}  // namespace lenslark::video
