#include "codecs/image/BmpDecoder.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <vector>

namespace lenslark::BmpDecoder {
namespace {

/// Lets the loader go on only with the size that was asked for, and counts what it has drawn.
struct SizeGate {
  Size announced;
  std::optional<Size> wanted;
  int rows = 0;
};

void checkSize(GdkPixbufLoader* loader, int width, int height, void* gate) {
  auto& sizes = *static_cast<SizeGate*>(gate);
  sizes.announced = {width, height};
  // A size of nothing is the loader's way of being told to stop before it makes room for pixels.
  if (sizes.announced != sizes.wanted) gdk_pixbuf_loader_set_size(loader, 0, 0);
}

void countRows(GdkPixbufLoader*, int, int, int, int height, void* gate) {
  static_cast<SizeGate*>(gate)->rows += height;
}

/// The loader makes room for what lies before the pixels, as much as the header says that is: all
/// of it must be in the file.
bool headerFits(const FileDescriptor& file) noexcept {
  constexpr std::size_t fileHeader = 14;
  constexpr std::size_t pixelsAt = 10;
  constexpr std::size_t headerSizeAt = fileHeader;
  constexpr std::size_t colorsAt = fileHeader + 32;
  constexpr std::uint64_t shortestHeaderWithColors = 40;
  std::array<std::byte, fileHeader + shortestHeaderWithColors> head{};
  struct stat status {};
  if (readAt(file, head, 0) <= 0 || ::fstat(file.get(), &status) != 0) return false;
  const auto number = [&head](std::size_t at) {
    std::uint64_t value = 0;
    for (std::size_t byte = sizeof(std::uint32_t); byte > 0; --byte) {
      value = value << 8 | std::to_integer<std::uint64_t>(head[at + byte - 1]);
    }
    return value;
  };
  const auto fileSize = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t headerSize = number(headerSizeAt);
  const std::uint64_t colors = headerSize >= shortestHeaderWithColors ? number(colorsAt) : 0;
  return number(pixelsAt) <= fileSize && fileHeader + headerSize + 4 * colors <= fileSize;
}

class Loader {
 public:
  explicit Loader(SizeGate& gate) : loader_(gdk_pixbuf_loader_new_with_type("bmp", nullptr)) {
    if (loader_ != nullptr) {
      g_signal_connect(loader_, "size-prepared", G_CALLBACK(checkSize), &gate);
      g_signal_connect(loader_, "area-updated", G_CALLBACK(countRows), &gate);
    }
  }
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;
  ~Loader() {
    // A loader complains when it is dropped unclosed.
    close();
    if (loader_ != nullptr) g_object_unref(loader_);
  }

  /// Whether the bytes could be used.
  bool write(std::span<const std::byte> bytes) {
    return loader_ != nullptr &&
           gdk_pixbuf_loader_write(loader_, reinterpret_cast<const guchar*>(bytes.data()),
                                   bytes.size(), nullptr) != FALSE;
  }

  /// Whether the file was whole.
  bool close() {
    if (loader_ == nullptr || closed_) return false;
    closed_ = true;
    return gdk_pixbuf_loader_close(loader_, nullptr) != FALSE;
  }

  Pixels pixels() {
    GdkPixbuf* pixels = gdk_pixbuf_loader_get_pixbuf(loader_);
    return Pixels(pixels != nullptr ? GDK_PIXBUF(g_object_ref(pixels)) : nullptr);
  }

 private:
  GdkPixbufLoader* loader_;
  bool closed_ = false;
};

}  // namespace

bool recognises(const FileDescriptor& file) noexcept {
  std::array<std::byte, 2> magic{};
  return readAt(file, magic, 0) == 2 && magic[0] == std::byte{'B'} && magic[1] == std::byte{'M'};
}

std::optional<Size> measure(const FileDescriptor& file) {
  if (!headerFits(file)) return std::nullopt;
  constexpr std::size_t headerAndPalette = 4096;
  std::array<std::byte, headerAndPalette> head;
  const ssize_t count = readAt(file, head, 0);
  if (count <= 0) return std::nullopt;
  SizeGate gate;
  Loader loader(gate);
  loader.write(std::span(head).first(static_cast<std::size_t>(count)));
  if (gate.announced.empty()) return std::nullopt;
  return gate.announced;
}

Pixels decode(const FileDescriptor& file, Size size) {
  if (!headerFits(file)) return nullptr;
  constexpr std::size_t chunkBytes = 256UL * 1024;
  SizeGate gate{.announced = {}, .wanted = size};
  Loader loader(gate);
  std::vector<std::byte> chunk(chunkBytes);
  off_t offset = 0;
  for (;;) {
    const ssize_t count = readAt(file, chunk, offset);
    if (count < 0) return nullptr;
    if (count == 0) break;
    if (!loader.write(std::span(chunk).first(static_cast<std::size_t>(count)))) return nullptr;
    offset += count;
  }
  if (!loader.close() || gate.announced != size) return nullptr;
  // Half a picture is none, which the loader does not mind. Of a compressed one it does not report
  // the last row.
  if (gate.rows + 1 < size.height) return nullptr;
  return loader.pixels();
}

}  // namespace lenslark::BmpDecoder
