#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/SerialQueue.h"
#include "codecs/VideoDecoder.h"
#include "sources/FrameSource.h"
#include "sources/VideoTimeline.h"

namespace lenslark {

/// One film while it plays. Two queues share it: "lenslark.video.decode" decodes ahead of time,
/// "lenslark.video" shows what is due. Lives in a shared_ptr.
///
/// **Threads**: `start` and `stop` as FrameSource's, `problem` any.
class VideoPlayer : public std::enable_shared_from_this<VideoPlayer> {
 public:
  VideoPlayer(std::unique_ptr<VideoDecoder> decoder, bool loop, int maxFPS, FrameSource::Emit emit);

  /// Decodes the first picture on the caller's thread, so that a film without any fails to start.
  /// **Fails** with Error.
  void start();

  /// When it returns no further picture is emitted.
  void stop();

  /// Why the film stopped before its end; nothing while all is well.
  std::optional<std::string> problem() const;

 private:
  void look();
  void scheduleLook();
  void refill();
  void decodeAheadOfTime();
  void decodeOne();
  std::optional<VideoFrame> nextPass();
  void keep(VideoFrame frame);

  // On the decode queue (and the starting thread before it).
  const std::unique_ptr<VideoDecoder> decoder_;
  const bool loop_;
  const double frameSeconds_;
  double passStart_ = 0;
  double lastDue_ = 0;
  std::int64_t picturesInPass_ = 0;

  // Constant once playing began.
  const FrameSource::Emit emit_;
  double begin_ = 0;
  std::unique_ptr<RepeatingTimer> timer_;

  mutable std::mutex mutex_;  // guards what follows
  VideoTimeline timeline_;
  std::optional<std::string> problem_;
  bool refilling_ = false;
  bool waiting_ = false;  ///< No picture lay ready at the last look.
  bool ended_ = false;
  bool stopped_ = false;

  SerialQueue showQueue_{"lenslark.video", SerialQueue::Lane::blocking};
  SerialQueue decodeQueue_{"lenslark.video.decode", SerialQueue::Lane::blocking};
};

}  // namespace lenslark
