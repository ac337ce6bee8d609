#pragma once

#include <memory>
#include <mutex>

#include "graphics/PixelBuffer.h"

namespace lenslark {

/// A picture that many cameras show. The first that shows all of it as it is has it drawn into
/// memory, and it and each further one gets a copy, past the caches. Whoever wants a part or
/// another size has that drawn from the original, which may have fewer bytes.
class SharedPicture final : public Frame {
 public:
  /// The pool's buffers are of the size and opacity of `original`.
  SharedPicture(FramePtr original, std::shared_ptr<PixelBufferPool> pool) noexcept;

  Size size() const noexcept override { return original_->size(); }
  bool opaque() const noexcept override { return original_->opaque(); }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override;
  const PixelBuffer* pixelBuffer() const noexcept override { return original_->pixelBuffer(); }

 private:
  /// Null when it could not be drawn.
  const PixelBuffer* inMemory() const noexcept;
  void drawIntoMemory() const noexcept;

  const FramePtr original_;
  const std::shared_ptr<PixelBufferPool> pool_;

  mutable std::once_flag drawn_;
  mutable std::shared_ptr<const PixelBuffer> memory_;  ///< Written once, behind drawn_.
};

}  // namespace lenslark
