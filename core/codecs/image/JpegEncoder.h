#pragma once

#include <cstddef>
#include <vector>

#include "graphics/PixelView.h"

namespace lenslark::JpegEncoder {

/// The picture over black, at a quality from 1 to 100 (others count as the nearest of these).
/// **Threads**: any. **Fails** with Error.
std::vector<std::byte> encode(const PixelView& picture, int quality);

}  // namespace lenslark::JpegEncoder
