#pragma once

#include <algorithm>

namespace lenslark {

/// How often something that failed is tried again: soon at first, for a cause that passes, then
/// less and less, since a damaged file fails every time and costs an attempt to decode it.
///
/// **Threads**: one at a time.
class RetryPace {
 public:
  /// Asked once in every round of attempts: in the first, two rounds later, four, and so on, up to
  /// `longestRest` rounds.
  bool isDue() noexcept {
    if (++waited_ < rest_) return false;
    waited_ = 0;
    rest_ = std::min(2 * rest_, longestRest);
    return true;
  }

  static constexpr int longestRest = 12;

 private:
  int rest_ = 1;  // rounds from one attempt to the next
  int waited_ = 0;
};

}  // namespace lenslark
