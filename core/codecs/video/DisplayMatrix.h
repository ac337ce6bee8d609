#pragma once

#include <array>
#include <cstdint>

#include "codecs/video/Planes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenslark::video {

/// The turn and mirror that a display matrix (ISO/IEC 14496-12, the first two columns of its first
/// two rows: a b c d, of any scale) stands for, to the nearest quarter.
Orientation orientationOf(const std::array<std::int32_t, 4>& matrix) noexcept;

/// The same of a film's stream; upright when it has no matrix.
Orientation orientationOf(const AVStream& stream) noexcept;

/// The size of a picture whose pixels have this shape, once they are square: the side that is too
/// short grows. A shape that is unknown or absurd counts as square.
Size squarePixels(Size stored, AVRational pixelShape) noexcept;

}  // namespace lenslark::video
