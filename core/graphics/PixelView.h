#pragma once

#include <cstddef>
#include <cstdint>

#include "graphics/Geometry.h"

namespace lenslark {

/// Pixels in somebody else's memory: B, G, R, A bytes with premultiplied alpha, sRGB, top row
/// first, rows `stride` bytes apart (at least width * 4).
struct PixelView {
  const std::uint8_t* data = nullptr;
  Size size;
  std::ptrdiff_t stride = 0;

  const std::uint8_t* row(int y) const noexcept { return data + y * stride; }
  /// A part that must lie inside.
  PixelView part(const PixelRect& rect) const noexcept {
    return {data + rect.y * stride + static_cast<std::ptrdiff_t>(rect.x) * 4, rect.size(), stride};
  }
};

/// The same, to be written.
struct PixelSpan {
  std::uint8_t* data = nullptr;
  Size size;
  std::ptrdiff_t stride = 0;

  std::uint8_t* row(int y) const noexcept { return data + y * stride; }
  PixelSpan part(const PixelRect& rect) const noexcept {
    return {data + rect.y * stride + static_cast<std::ptrdiff_t>(rect.x) * 4, rect.size(), stride};
  }
  operator PixelView() const noexcept { return {data, size, stride}; }
};

}  // namespace lenslark
