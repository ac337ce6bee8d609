#pragma once

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace libyuv {
struct YuvConstants;
}

namespace lenslark::video {

/// Which way a film's Y, U and V become red, green and blue.
struct ColorTags {
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  bool fullRange = false;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
};

/// The matrix of a film of this many lines: what it is tagged with, else BT.709 from 720 lines on,
/// as players take it, and BT.601 below.
AVColorSpace matrixOf(const ColorTags& tags, int height) noexcept;

/// The same as libyuv's constants, which live as long as the process.
const libyuv::YuvConstants& yuvConstants(const ColorTags& tags, int height) noexcept;

}  // namespace lenslark::video
