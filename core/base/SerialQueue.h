#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace lenslark {

/// Runs work items one at a time and in order, on a thread of a shared pool. State that only a
/// queue's work touches needs no lock.
///
/// **Threads**: every operation may be called from any thread. What an item throws is logged.
/// **Owns**: nothing of its items' surroundings. Destroying a queue lets items that were posted
/// still run; an item that must not outlive its owner captures it weakly.
class SerialQueue {
 public:
  using Work = std::move_only_function<void()>;

  /// Which pool carries the work. Timely items are short and never wait for anything (the router,
  /// heartbeats, timers); blocking ones may wait for child processes, disks and decoders; waiting
  /// ones for items of the other two as well (the start and stop of a source). An item never waits
  /// for one of its own lane, whose threads may all be waiting like it, and no timely item waits
  /// behind another lane's. When nothing has been done in a blocking or waiting pool for a second
  /// although something is to do, as when all its threads hang in one disk, it is given more. A
  /// lane makes do with the threads that the system gives.
  enum class Lane { timely, blocking, waiting };

  /// Makes the threads of all lanes, which else come with a lane's first queue: a program that is
  /// to run for long learns at once when there are none. **Fails** with std::system_error.
  static void prepareThreads();

  /// **Fails** as `prepareThreads` does, when it is its lane's first.
  explicit SerialQueue(std::string label, Lane lane = Lane::timely);
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const noexcept;

  /// Runs `work` later, behind all items posted before it.
  void post(Work work);

  /// Runs `body` on the queue, waits for it and returns (or throws) what it does. Must not be
  /// called from an item of the same lane: a debug build ends the process there, where a release
  /// build would hang once in a while.
  template <typename Body>
  auto sync(Body&& body) -> std::invoke_result_t<Body&> {
    assertOtherLane();
    std::packaged_task<std::invoke_result_t<Body&>()> task(std::forward<Body>(body));
    auto result = task.get_future();
    post([task = std::move(task)]() mutable { task(); });
    return result.get();
  }

  /// Whether the caller is running as an item of this queue.
  bool isCurrent() const noexcept;

 private:
  friend class RepeatingTimer;
  struct State;

  void assertOtherLane() const noexcept;

  std::shared_ptr<State> state_;
};

/// Fires on a queue again and again, on a grid that does not drift; firings that were missed are
/// dropped, not caught up.
///
/// **Threads**: any. A firing that was already under way when the timer is destroyed or stopped
/// from another thread may still run: handlers hold their owner weakly, or stop on the queue.
class RepeatingTimer {
 public:
  using Duration = std::chrono::nanoseconds;

  /// Silent until `schedule`.
  RepeatingTimer(SerialQueue& queue, std::move_only_function<void()> handler);
  ~RepeatingTimer();
  RepeatingTimer(const RepeatingTimer&) = delete;
  RepeatingTimer& operator=(const RepeatingTimer&) = delete;

  /// First fires after `delay`, then every `interval`. Replaces the schedule before it.
  void schedule(Duration delay, Duration interval);
  void stop();

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/// Runs work on the blocking pool, in no order.
void runInBackground(SerialQueue::Work work);

}  // namespace lenslark
