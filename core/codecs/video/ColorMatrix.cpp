#include "codecs/video/ColorMatrix.h"

#include <libyuv/convert_argb.h>
#include <libyuv/row.h>

#include <cstddef>
#include <cstdint>

namespace lenslark::video {
namespace {

using libyuv::YuvConstants;

/// libyuv holds the weight of U in blue at 128/64, the most that its NEON code can multiply with,
/// where BT.709 and BT.2020 in limited range want 2.112 and 2.142: errors of up to 16 levels. The
/// x86 code has room for the exact values.
YuvConstants withBlueWeight(YuvConstants constants, [[maybe_unused]] std::uint8_t weight) noexcept {
#if defined(__x86_64__) || defined(__i386__)
  for (std::size_t index = 0; index < sizeof constants.kUVToB; index += 2) {
    constants.kUVToB[index] = weight;
  }
#endif
  return constants;
}

// Aligned for the vector code, which loads them whole.
alignas(32) const YuvConstants bt709Limited = withBlueWeight(libyuv::kYuvH709Constants, 135);
alignas(32) const YuvConstants bt2020Limited = withBlueWeight(libyuv::kYuv2020Constants, 137);

}  // namespace

AVColorSpace matrixOf(const ColorTags& tags, int height) noexcept {
  switch (tags.matrix) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_SMPTE240M:  // of early HD cameras: within 5 levels of BT.709, 32 off BT.601
      return AVCOL_SPC_BT709;
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
      return AVCOL_SPC_SMPTE170M;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
      return AVCOL_SPC_BT2020_NCL;
    default:
      return height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
  }
}

const YuvConstants& yuvConstants(const ColorTags& tags, int height) noexcept {
  switch (matrixOf(tags, height)) {
    case AVCOL_SPC_BT709:
      return tags.fullRange ? libyuv::kYuvF709Constants : bt709Limited;
    case AVCOL_SPC_BT2020_NCL:
      return tags.fullRange ? libyuv::kYuvV2020Constants : bt2020Limited;
    default:
      return tags.fullRange ? libyuv::kYuvJPEGConstants : libyuv::kYuvI601Constants;
  }
}

}  // namespace lenslark::video
