#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lenslark {

/// A glyph's coverage, 0 to 255 for each pixel, top row first, rows tightly packed.
struct GlyphMask {
  int width = 0;
  int height = 0;
  /// From the pen's position on the base line to the mask's left and upwards to its top.
  int left = 0;
  int top = 0;
  /// How far the pen moves on, pixels.
  double advance = 0;
  std::vector<std::uint8_t> coverage;
};

/// Renders letters once, so that a caption that changes each frame is put together from masks.
/// **Threads**: any. Found through `codecs/Modules.h`.
class TextRenderer {
 public:
  virtual ~TextRenderer() = default;

  /// The mask of each character of `characters` (ASCII), in that order. `font` is a fontconfig
  /// family with style ("Menlo Bold"); the closest font there is serves. `size` is in pixels per
  /// em. **Fails** with Error.
  virtual std::vector<GlyphMask> render(const std::string& font, double size,
                                        std::string_view characters) = 0;
};

}  // namespace lenslark
