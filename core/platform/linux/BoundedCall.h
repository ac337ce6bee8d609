#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace lenslark {

/// Makes calls that may never return, on threads of their own, and waits for each no longer than
/// it may take. While an earlier call hangs, new ones give up at once: whatever holds that one up
/// would hold them up too, and each would leave a thread behind.
///
/// **Threads**: any.
/// **Owns**: nothing of a call that was given up; what such a call uses must belong to it.
class BoundedCall {
 public:
  /// What `work` returns or throws; nothing when it does not end in time.
  template <typename Work>
  auto operator()(std::chrono::milliseconds patience, Work work)
      -> std::optional<std::invoke_result_t<Work&>> {
    if (hanging()) return std::nullopt;
    std::packaged_task<std::invoke_result_t<Work&>()> task(std::move(work));
    auto result = task.get_future();
    const auto call = std::make_shared<Call>(calls_);
    runAlone([call, task = std::move(task)]() mutable {
      task();
      call->end();
    });
    if (result.wait_for(patience) != std::future_status::ready && call->giveUp()) {
      return std::nullopt;
    }
    return result.get();
  }

 private:
  struct Calls {
    std::mutex mutex;
    int hanging = 0;  // guarded by `mutex`
  };

  class Call {
   public:
    explicit Call(std::shared_ptr<Calls> calls) : calls_(std::move(calls)) {}

    void end();
    /// False when it has ended meanwhile.
    bool giveUp();

   private:
    const std::shared_ptr<Calls> calls_;
    // Guarded by the mutex of all calls.
    bool ended_ = false;
    bool givenUp_ = false;
  };

  bool hanging() const;
  static void runAlone(std::move_only_function<void()> work);

  const std::shared_ptr<Calls> calls_ = std::make_shared<Calls>();
};

}  // namespace lenslark
