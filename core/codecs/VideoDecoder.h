#pragma once

#include <memory>
#include <optional>
#include <string>

#include "graphics/Frame.h"
#include "graphics/PixelBuffer.h"

namespace lenslark {

/// What a film's header says.
struct VideoInfo {
  Size size;               ///< Upright, in square pixels.
  double durationSec = 0;  ///< 0 when unknown.
  double nominalFps = 0;   ///< 0 when unknown.
};

/// One decoded picture and when it is due, in seconds from the start of the film.
struct VideoFrame {
  FramePtr picture;
  double timeSec = 0;
};

/// Reads the first video track of one open film from its start to its end.
/// **Threads**: one at a time.
class VideoDecoder {
 public:
  virtual ~VideoDecoder() = default;

  virtual const VideoInfo& info() const noexcept = 0;

  /// The next picture in order of presentation, or nothing at the end of the film. What is broken
  /// inside the film is skipped. **Fails** with Error when no picture comes in reasonable time.
  virtual std::optional<VideoFrame> next() = 0;

  /// Back to the film's first picture. **Fails** with Error.
  virtual void rewind() = 0;

  /// Tells how late the last picture came, in seconds. A decoder that falls behind leaves pictures
  /// out: first those that no other picture needs, then all up to the next key frame.
  virtual void setLag(double seconds) noexcept = 0;
};

/// Opens films. **Threads**: any. Found through `codecs/Modules.h`.
class VideoCodec {
 public:
  virtual ~VideoCodec() = default;

  /// Pictures come no larger than `maxSide` on the longer side; those that are shrunk to it have
  /// even sides. Only the file itself is read.
  /// **Fails** with Error when it is no film that can be shown.
  virtual std::unique_ptr<VideoDecoder> open(const std::string& path, int maxSide) = 0;
};

}  // namespace lenslark
