#include "codecs/image/PictureSource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "base/WholeFile.h"

namespace lenslark {
namespace {

/// Where one reader stands in the file. Readers share the descriptor but not its offset.
struct Cursor {
  const FileDescriptor& file;
  std::size_t size;
  gint64 position = 0;
};

gint64 readSource(VipsSourceCustom*, void* buffer, gint64 length, void* data) {
  auto& cursor = *static_cast<Cursor*>(data);
  if (length <= 0) return 0;
  const std::span bytes(static_cast<std::byte*>(buffer), static_cast<std::size_t>(length));
  const ssize_t count = readAt(cursor.file, bytes, cursor.position);
  if (count > 0) cursor.position += count;
  return count;
}

gint64 seekSource(VipsSourceCustom*, gint64 offset, int whence, void* data) {
  auto& cursor = *static_cast<Cursor*>(data);
  const gint64 base = whence == SEEK_SET   ? 0
                      : whence == SEEK_CUR ? cursor.position
                                           : static_cast<gint64>(cursor.size);
  gint64 target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) {
    errno = EINVAL;
    return -1;
  }
  cursor.position = target;
  return target;
}

void dropCursor(void* data, GClosure*) { delete static_cast<Cursor*>(data); }

}  // namespace

std::optional<PictureSource> PictureSource::open(const std::string& path) {
  FileDescriptor file = openRegularFile(path);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || status.st_size <= 0) return std::nullopt;
  return PictureSource(std::move(file), static_cast<std::size_t>(status.st_size));
}

std::vector<std::byte> PictureSource::contents() const {
  if (!file_) return {bytes_.begin(), bytes_.end()};
  std::vector<std::byte> contents(size_);
  const ssize_t count = readAt(file_, contents, 0);
  contents.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  return contents;
}

VipsSourcePtr PictureSource::makeReader() const {
  if (!file_) return VipsSourcePtr(vips_source_new_from_memory(bytes_.data(), bytes_.size()));
  VipsSourceCustom* source = vips_source_custom_new();
  std::unique_ptr<Cursor> cursor(new Cursor{file_, size_});
  g_signal_connect(source, "seek", G_CALLBACK(seekSource), cursor.get());
  // The handlers end with the source, and the cursor with them.
  g_signal_connect_data(source, "read", G_CALLBACK(readSource), cursor.release(), dropCursor,
                        GConnectFlags{});
  return VipsSourcePtr(VIPS_SOURCE(source));
}

}  // namespace lenslark
