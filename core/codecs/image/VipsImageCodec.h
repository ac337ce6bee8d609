#pragma once

#include "codecs/ImageCodec.h"

namespace lenslark {

/// Still pictures through libvips, and bitmaps through gdk-pixbuf. What a file is, its content
/// says, never its name.
///
/// A picture's sides may be 32,768 pixels and its area 150 million; formats that can only be read
/// by holding the whole file in memory may be 256 MB long. SVG is measured here but not drawn:
/// drawing may take any amount of memory and time, and belongs into a process of its own.
class VipsImageCodec final : public ImageCodec {
 public:
  static constexpr int longestSide = 32768;
  static constexpr long long largestArea = 150'000'000;

  std::optional<Size> measure(const std::string& path) override;
  std::shared_ptr<PixelBuffer> load(const std::string& path, int maxSide) override;
  std::shared_ptr<PixelBuffer> load(std::span<const std::byte> file, int maxSide) override;
  std::vector<std::byte> encodePng(const PixelView& picture) override;
  std::vector<std::byte> encodeJpeg(const PixelView& picture, int quality) override;
};

}  // namespace lenslark
