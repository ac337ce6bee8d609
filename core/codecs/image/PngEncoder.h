#pragma once

#include <cstddef>
#include <vector>

#include "graphics/PixelView.h"

/// Writes PNG files for eyes that wait for them: quickly rather than small.
namespace lenslark::PngEncoder {

/// 8 bit, tagged sRGB; RGB for an opaque picture, else RGBA with straight alpha.
/// **Threads**: any. **Fails** with Error when the picture is empty or memory is short.
std::vector<std::byte> encode(const PixelView& picture);

}  // namespace lenslark::PngEncoder
