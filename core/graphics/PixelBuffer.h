#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>

#include "graphics/Frame.h"

namespace lenslark {

class PixelBufferPool;

/// A picture in memory of its own: BGRA, premultiplied, rows tightly packed unless it was made
/// with a wider stride.
///
/// **Threads**: whoever makes it writes it, then hands it on as `FramePtr` and lets go.
class PixelBuffer final : public Frame {
 public:
  /// Uninitialised pixels. **Fails** with std::bad_alloc.
  explicit PixelBuffer(Size size, bool opaque = false);
  PixelBuffer(Size size, bool opaque, std::size_t stride);
  ~PixelBuffer() override;
  PixelBuffer(const PixelBuffer&) = delete;
  PixelBuffer& operator=(const PixelBuffer&) = delete;

  Size size() const noexcept override { return size_; }
  bool opaque() const noexcept override { return opaque_; }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override;
  const PixelBuffer* pixelBuffer() const noexcept override { return this; }

  PixelView view() const noexcept { return {data_, size_, stride_}; }
  PixelSpan span() noexcept { return {data_, size_, stride_}; }

 private:
  std::uint8_t* data_;
  Size size_;
  std::ptrdiff_t stride_;
  bool opaque_;
};

/// A frame drawn into a buffer of its own. Nothing when it could not be drawn.
std::shared_ptr<PixelBuffer> materialize(const Frame& frame);

/// Buffers of one size that are used again once their last user has let go of them.
///
/// **Threads**: any. **Owns** its free buffers; those in use may outlive the pool.
class PixelBufferPool {
 public:
  PixelBufferPool(Size size, bool opaque);
  ~PixelBufferPool();

  Size size() const noexcept;
  bool opaque() const noexcept;

  /// A buffer with arbitrary content. **Fails** with std::bad_alloc.
  std::shared_ptr<PixelBuffer> take();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
