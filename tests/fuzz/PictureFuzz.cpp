// Any bytes as a picture: it is refused, or loaded within the size that was asked for and written
// as a thumbnail and as a snapshot.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "PlantedFile.h"
#include "codecs/Modules.h"
#include "graphics/PixelBuffer.h"

namespace {

using namespace lenslark;

constexpr int maxSide = 128;
constexpr int quality = 85;

void check(const PixelBuffer* picture) {
  if (picture == nullptr) return;
  if (picture->size().empty() || picture->size().longerSide() > maxSide) std::abort();
  Modules::imageCodec().encodeJpeg(picture->view(), quality);
  Modules::imageCodec().encodePng(picture->view());
}

}  // namespace

/// libdav1d keeps 40 bytes of each AVIF whose picture holds no data. A thread of libvips that is
/// just ending when leaks are looked for holds GLib's record of it where nobody looks; no more of
/// its call stack than this is known.
extern "C" const char* __lsan_default_suppressions() { return "leak:libdav1d\nleak:g_malloc0\n"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static PlantedFile file;
  const std::string& path = file.plant({data, size});
  ImageCodec& codec = Modules::imageCodec();
  const auto measured = codec.measure(path);
  if (measured && measured->empty()) std::abort();
  const auto picture = codec.load(path, maxSide);
  // What cannot be measured is beyond the limits, and never decoded.
  if (picture && !measured) std::abort();
  check(picture.get());
  check(codec.load(std::as_bytes(std::span(data, size)), maxSide).get());
  return 0;
}
