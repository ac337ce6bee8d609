#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#include "graphics/PixelBuffer.h"

namespace lenslark {

/// B, G, R, A.
using Pixel = std::array<std::uint8_t, 4>;

inline Pixel pixelAt(const PixelView& picture, int x, int y) {
  Pixel pixel{};
  std::memcpy(pixel.data(), picture.row(y) + static_cast<std::ptrdiff_t>(x) * 4, pixel.size());
  return pixel;
}

inline void setPixel(const PixelSpan& picture, int x, int y, const Pixel& pixel) {
  std::memcpy(picture.row(y) + static_cast<std::ptrdiff_t>(x) * 4, pixel.data(), pixel.size());
}

/// The opaque pixel that stands at (x, y) of a numbered picture: it tells its own place.
inline Pixel numberedPixel(int x, int y) {
  return {static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y),
          static_cast<std::uint8_t>(3 * x + 5 * y), 255};
}

/// A picture without any symmetry, opaque, with rows `padding` bytes longer than their pixels.
inline std::shared_ptr<PixelBuffer> numberedPicture(Size size, std::size_t padding = 0) {
  auto picture =
      std::make_shared<PixelBuffer>(size, true, static_cast<std::size_t>(size.width) * 4 + padding);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) setPixel(picture->span(), x, y, numberedPixel(x, y));
  }
  return picture;
}

/// A picture of one premultiplied pixel value.
inline std::shared_ptr<PixelBuffer> uniformPicture(Size size, const Pixel& pixel) {
  auto picture = std::make_shared<PixelBuffer>(size, pixel[3] == 255);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) setPixel(picture->span(), x, y, pixel);
  }
  return picture;
}

}  // namespace lenslark
