#pragma once

#include <cstddef>
#include <vector>

namespace lenslark {

/// Threads that do nothing: as long as they are there, nobody else takes their places. Who has had
/// some knows that there are so many for what ends the process when it gets none.
///
/// **Threads**: one at a time. **Owns** its threads; the system has them back when it is gone.
class HeldThreads {
 public:
  /// As many of `count` as the system gives.
  explicit HeldThreads(std::size_t count);
  ~HeldThreads();
  HeldThreads(const HeldThreads&) = delete;
  HeldThreads& operator=(const HeldThreads&) = delete;

  std::size_t count() const noexcept;
  /// False when none was left.
  bool letOneGo() noexcept;

 private:
  struct Held;
  std::vector<Held> threads_;
};

}  // namespace lenslark
