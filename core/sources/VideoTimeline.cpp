#include "sources/VideoTimeline.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace lenslark {
namespace {

/// Films round their time stamps, to milliseconds at the coarsest: a picture that is due a hair
/// before its period begins belongs to it.
constexpr double rounding = 0.001;

}  // namespace

std::int64_t VideoTimeline::periodAt(double time) const noexcept {
  return static_cast<std::int64_t>(std::floor((time + rounding) / period_));
}

std::optional<VideoFrame> VideoTimeline::take(double now) {
  if (pending_.empty() || pending_.front().timeSec > now) return std::nullopt;
  if (periodAt(now) <= lastPeriod_) return std::nullopt;
  while (pending_.size() > 1 && pending_[1].timeSec <= now) pending_.pop_front();
  VideoFrame frame = std::move(pending_.front());
  pending_.pop_front();
  lastPeriod_ = periodAt(now);
  return frame;
}

std::optional<double> VideoTimeline::nextLook() const noexcept {
  if (pending_.empty()) return std::nullopt;
  const double nextPeriod = static_cast<double>(lastPeriod_ + 1) * period_ - rounding;
  return std::max(pending_.front().timeSec, nextPeriod);
}

}  // namespace lenslark
