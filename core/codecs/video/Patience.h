#pragma once

#include <algorithm>
#include <limits>

namespace lenslark::video {

/// How long something may still take. A long while in which nobody looked counts as a second: then
/// the process was stopped (Ctrl-Z) or a disk asleep, and the film goes on afterwards.
///
/// **Threads**: one at a time. Times in seconds of the uptime clock.
class Patience {
 public:
  /// Endless before.
  void begin(double now, double seconds) noexcept {
    looked_ = now;
    left_ = seconds;
  }

  bool isOver(double now) noexcept {
    constexpr double longestStep = 1;
    left_ -= std::clamp(now - looked_, 0.0, longestStep);
    looked_ = now;
    return left_ < 0;
  }

 private:
  double looked_ = 0;
  double left_ = std::numeric_limits<double>::infinity();
};

}  // namespace lenslark::video
