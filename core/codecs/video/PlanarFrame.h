#pragma once

#include <memory>

#include "codecs/video/ColorMatrix.h"
#include "codecs/video/Planes.h"
#include "codecs/video/ToneMap.h"
#include "graphics/Frame.h"

namespace lenslark::video {

/// Bits of a sample; ten lie in 16.
enum class Depth { eight, ten };

/// An upright picture in planes. It is converted while it is drawn, straight into its place.
class PlanarFrame final : public Frame {
 public:
  /// `owner` keeps the planes alive; the matrix and the tone map (may be null) live for ever.
  PlanarFrame(const Planes& planes, Depth depth, const libyuv::YuvConstants& matrix,
              const ToneMap* toneMap, std::shared_ptr<const void> owner);

  Size size() const noexcept override { return planes_.size(); }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override;

 private:
  bool convert(const Planes& planes, Depth depth, const PixelSpan& target) const noexcept;
  bool convertRows(const Planes& planes, Depth depth, const PixelSpan& target) const noexcept;
  bool drawScaled(const PixelRect& part, const PixelSpan& target) const;

  const Planes planes_;
  const Depth depth_;
  const libyuv::YuvConstants& matrix_;
  const ToneMap* const toneMap_;
  const std::shared_ptr<const void> owner_;
};

}  // namespace lenslark::video
