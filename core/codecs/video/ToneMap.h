#pragma once

#include <cstdint>
#include <vector>

#include "codecs/video/ColorMatrix.h"
#include "graphics/PixelView.h"

namespace lenslark::video {

/// Turns BGRA pixels that still carry an HDR film's transfer curve and BT.2020 primaries into sRGB,
/// through a table that is made once.
///
/// PQ (SMPTE ST 2084) and HLG (ARIB STD-B67, on a display of 1000 cd/m2) give light; diffuse white
/// (203 cd/m2, ITU-R BT.2408) becomes 76 % of sRGB's white, the light above is rolled off towards
/// 1000 cd/m2, and colours outside of BT.709 are clipped.
class ToneMap {
 public:
  /// The map for a film with these tags, or null for a film that needs none.
  static const ToneMap* forTags(const ColorTags& tags);

  void apply(const PixelSpan& pixels) const noexcept;

 private:
  enum class Curve { pq, hlg };
  explicit ToneMap(Curve curve);

  std::vector<std::uint32_t> table_;
};

}  // namespace lenslark::video
