#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "graphics/PixelBuffer.h"

/// Between the codecs' straight RGB or RGBA bytes and the project's premultiplied BGRA.
namespace lenslark::RgbaPixels {

/// `bands` is 3 or 4, rows `stride` bytes apart. Colours are multiplied exactly: the nearest whole
/// number to colour * alpha / 255.
std::shared_ptr<PixelBuffer> toPremultiplied(const std::uint8_t* pixels, Size size, int bands,
                                             std::ptrdiff_t stride);

/// Tightly packed RGBA with straight alpha.
std::vector<std::uint8_t> toStraight(const PixelView& picture);

/// Tightly packed RGB of the picture laid over black.
std::vector<std::uint8_t> overBlack(const PixelView& picture);

}  // namespace lenslark::RgbaPixels
