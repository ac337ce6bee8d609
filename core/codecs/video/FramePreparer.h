#pragma once

#include <memory>

#include "codecs/video/ColorMatrix.h"
#include "codecs/video/PlanarFrame.h"
#include "graphics/Frame.h"
#include "graphics/PixelBuffer.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
}

struct SwsContext;

namespace lenslark::video {

/// Turns what a decoder gives into pictures: upright, in square pixels, no larger than wanted. What
/// already is all that stays in the decoder's own planes. A picture in HDR is drawn into memory
/// here, ahead of its time: mapping its tones costs ten copies of it, which no camera should pay
/// again.
/// **Threads**: one at a time.
class FramePreparer {
 public:
  /// Pictures are turned and scaled to exactly `size`.
  FramePreparer(Orientation orientation, Size size);
  ~FramePreparer();
  FramePreparer(const FramePreparer&) = delete;
  FramePreparer& operator=(const FramePreparer&) = delete;

  /// Takes over the frame's planes. Nothing when the frame is of no kind that can be shown.
  /// **Fails** with std::bad_alloc.
  FramePtr prepare(AVFrame& frame);

 private:
  FramePtr preparePlanes(AVFrame& frame, Chroma chroma, Depth depth);
  FramePtr convertOther(const AVFrame& frame);
  FramePtr inMemory(const Frame& frame);
  std::shared_ptr<std::uint8_t> takeMemory(std::size_t bytes);

  const Orientation orientation_;
  const Size size_;
  PixelBufferPool drawn_;
  SwsContext* scaler_ = nullptr;
  AVBufferPool* pool_ = nullptr;
  std::size_t poolBytes_ = 0;
};

}  // namespace lenslark::video
