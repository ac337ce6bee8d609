#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "codecs/VideoDecoder.h"

namespace lenslark {

/// Decides which of the pictures that were decoded ahead is shown when. Times are seconds since
/// playing began; passes of a looping film follow each other on one line.
/// **Threads**: one at a time.
class VideoTimeline {
 public:
  /// At most one picture is shown in each period of 1/`rate` seconds.
  explicit VideoTimeline(double rate) noexcept : period_(1 / rate) {}

  void add(FramePtr picture, double due) { pending_.push_back({std::move(picture), due}); }
  std::size_t pending() const noexcept { return pending_.size(); }

  /// The latest picture that is due now, those before it dropped; nothing when none is due or the
  /// present period has had its picture.
  std::optional<VideoFrame> take(double now);

  /// When `take` is to be called next; nothing while no picture is pending.
  std::optional<double> nextLook() const noexcept;

 private:
  std::int64_t periodAt(double time) const noexcept;

  double period_;
  std::deque<VideoFrame> pending_;
  std::int64_t lastPeriod_ = -1;
};

}  // namespace lenslark
