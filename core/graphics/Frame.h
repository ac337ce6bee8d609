#pragma once

#include <memory>

#include "graphics/Geometry.h"
#include "graphics/PixelView.h"

namespace lenslark {

class PixelBuffer;

/// One picture on its way to the cameras. It may still lie in a decoder's planes: whoever shows it
/// has it drawn, as late as possible and straight into the place where it is wanted, so that a
/// picture is converted, scaled and turned once.
///
/// **Threads**: immutable once it is handed on; any number of threads may draw it.
class Frame {
 public:
  virtual ~Frame() = default;

  /// Upright, in square pixels.
  virtual Size size() const noexcept = 0;

  /// Whether every pixel's alpha is 255.
  virtual bool opaque() const noexcept = 0;

  /// Draws `part` (inside the frame) scaled to the whole of `target`, every pixel of it written.
  /// Equal sizes give the exact pixels. Returns whether it could; the target is undefined if not.
  virtual bool draw(const PixelRect& part, const PixelSpan& target) const noexcept = 0;

  /// The frame itself when it is already BGRA in memory, so that drawing it costs one copy.
  virtual const PixelBuffer* pixelBuffer() const noexcept { return nullptr; }

  PixelRect bounds() const noexcept { return {0, 0, size().width, size().height}; }
};

using FramePtr = std::shared_ptr<const Frame>;

}  // namespace lenslark
