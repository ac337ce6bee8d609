#pragma once

#include <memory>

#include "graphics/PixelBuffer.h"

namespace lenslark {

/// A picture that many cameras show: it was drawn into memory once, and each camera that shows all
/// of it as it is gets a copy, past the caches. Whoever wants a part or another size has it drawn
/// from the original, which may have fewer bytes.
class SharedPicture final : public Frame {
 public:
  /// `whole` holds the pixels of `original`.
  SharedPicture(FramePtr original, std::shared_ptr<const PixelBuffer> whole) noexcept;

  Size size() const noexcept override { return whole_->size(); }
  bool opaque() const noexcept override { return whole_->opaque(); }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override;
  const PixelBuffer* pixelBuffer() const noexcept override { return whole_.get(); }

 private:
  FramePtr original_;
  std::shared_ptr<const PixelBuffer> whole_;
};

}  // namespace lenslark
