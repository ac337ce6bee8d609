#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "graphics/Geometry.h"

/// WebP by way of its own library: libvips would decode it with threads of its own (see
/// VipsImageCodec.cpp).
namespace lenslark::WebpDecoder {

struct Picture {
  Size size;      ///< Of a picture that was shrunk, what was asked for; else the canvas's.
  int bands = 0;  ///< RGB, or RGBA with straight alpha.
  std::unique_ptr<std::uint8_t[]> pixels;  ///< Tightly packed.
  std::vector<std::byte> profile;          ///< ICC; empty where the file has none.
};

/// The first picture of the file as it is stored, on its canvas of `stored`, or shrunk to `wanted`
/// if it fills that. Nothing when the file is broken or cut short, or the canvas is another.
/// **Threads**: any. **Fails** with std::bad_alloc.
std::optional<Picture> decode(std::span<const std::byte> file, Size stored, Size wanted);

}  // namespace lenslark::WebpDecoder
