#pragma once

#include <cstddef>

#include "graphics/PixelView.h"

namespace lenslark {

/// Has the processor look up where the pages of pixels lie that are written soon, while it is busy
/// with others: the first store to a page waits for that otherwise, a frame of 1080p two thousand
/// times. One line of each page is enough.
inline void lookUpPages(const PixelSpan& pixels) noexcept {
  constexpr std::ptrdiff_t page = 4096;
  const std::ptrdiff_t bytes = pixels.stride * pixels.size.height;
  for (std::ptrdiff_t at = 0; at < bytes; at += page) __builtin_prefetch(pixels.data + at, 1);
}

}  // namespace lenslark
