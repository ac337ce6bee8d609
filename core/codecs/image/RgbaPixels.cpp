#include "codecs/image/RgbaPixels.h"

#include <algorithm>

#include "graphics/Compositor.h"

namespace lenslark::RgbaPixels {
namespace {

/// The nearest whole number to a * b / 255, without a division.
constexpr std::uint8_t multiply(unsigned a, unsigned b) noexcept {
  const unsigned product = a * b + 128;
  return static_cast<std::uint8_t>((product + (product >> 8)) >> 8);
}

void convertOpaqueRow(const std::uint8_t* from, std::uint8_t* to, int width) noexcept {
  for (int x = 0; x < width; ++x, from += 3, to += 4) {
    to[0] = from[2];
    to[1] = from[1];
    to[2] = from[0];
    to[3] = 255;
  }
}

void premultiplyRow(const std::uint8_t* from, std::uint8_t* to, int width) noexcept {
  for (int x = 0; x < width; ++x, from += 4, to += 4) {
    const unsigned alpha = from[3];
    to[0] = multiply(from[2], alpha);
    to[1] = multiply(from[1], alpha);
    to[2] = multiply(from[0], alpha);
    to[3] = from[3];
  }
}

std::size_t pixelCount(Size size) noexcept {
  return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

}  // namespace

std::shared_ptr<PixelBuffer> toPremultiplied(const std::uint8_t* pixels, Size size, int bands,
                                             std::ptrdiff_t stride) {
  const bool opaque = bands == 3 || Compositor::isOpaque({pixels, size, stride});
  auto buffer = std::make_shared<PixelBuffer>(size, opaque);
  const PixelSpan target = buffer->span();
  for (int y = 0; y < size.height; ++y) {
    if (bands == 3) {
      convertOpaqueRow(pixels + y * stride, target.row(y), size.width);
    } else {
      premultiplyRow(pixels + y * stride, target.row(y), size.width);
    }
  }
  return buffer;
}

std::vector<std::uint8_t> toStraight(const PixelView& picture) {
  std::vector<std::uint8_t> straight(pixelCount(picture.size) * 4);
  std::uint8_t* to = straight.data();
  for (int y = 0; y < picture.size.height; ++y) {
    const std::uint8_t* from = picture.row(y);
    for (int x = 0; x < picture.size.width; ++x, from += 4, to += 4) {
      const unsigned alpha = from[3];
      const auto divide = [alpha](unsigned colour) {
        if (alpha == 0) return std::uint8_t{0};
        return static_cast<std::uint8_t>(std::min(255U, (colour * 255 + alpha / 2) / alpha));
      };
      to[0] = alpha == 255 ? from[2] : divide(from[2]);
      to[1] = alpha == 255 ? from[1] : divide(from[1]);
      to[2] = alpha == 255 ? from[0] : divide(from[0]);
      to[3] = from[3];
    }
  }
  return straight;
}

std::vector<std::uint8_t> overBlack(const PixelView& picture) {
  std::vector<std::uint8_t> packed(pixelCount(picture.size) * 3);
  std::uint8_t* to = packed.data();
  for (int y = 0; y < picture.size.height; ++y) {
    const std::uint8_t* from = picture.row(y);
    for (int x = 0; x < picture.size.width; ++x, from += 4, to += 3) {
      // Premultiplied colours over black are what they are.
      to[0] = from[2];
      to[1] = from[1];
      to[2] = from[0];
    }
  }
  return packed;
}

}  // namespace lenslark::RgbaPixels
