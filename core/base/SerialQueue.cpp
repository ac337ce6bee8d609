#include "base/SerialQueue.h"

#include <algorithm>
#include <asio/dispatch.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <atomic>
#include <cassert>
#include <chrono>
#include <cstdint>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "base/HeldThreads.h"
#include "base/Log.h"
#include "base/PosixError.h"

namespace lenslark {
namespace {

using Executor = asio::io_context::executor_type;
using Strand = asio::strand<Executor>;

/// Has the threads that the system gave, which may be fewer than were asked for.
class Pool {
 public:
  /// **Fails** with std::system_error when there is not one thread.
  explicit Pool(std::size_t threads) {
    if (grow(threads) == 0) throw threadShortage();
  }

  asio::io_context& context() noexcept { return context_; }

  /// Adds threads. Returns how many of them there were.
  std::size_t grow(std::size_t count) {
    for (std::size_t grown = 0; grown < count; ++grown) {
      try {
        std::thread([this] { work(); }).detach();
      } catch (const std::exception&) {
        return grown;
      }
    }
    return count;
  }

  std::atomic<std::uint64_t> done = 0;  // items

 private:
  /// Items catch what they throw; what is left is a system that has no memory for the next step.
  void work() noexcept {
    for (;;) {
      try {
        context_.run();
      } catch (const std::exception& error) {
        Log::router().error("a thread goes on: {}", error.what());
      }
    }
  }

  asio::io_context context_;
  const asio::executor_work_guard<Executor> unfinished_{context_.get_executor()};
};

// The pools live until the process ends: a queue in a static object may still need them while
// others are being destroyed, so they are never torn down.
Pool& timelyPool() {
  static auto& pool = *new Pool(2);
  return pool;
}

// For what is started later: tools, watches, the threads of libraries.
constexpr std::size_t threadsForOthers = 8;

/// Adds threads to a pool while not one of those it has gets anything done, as when all of them
/// hang in a disk: what has nothing to do with that disk goes on then. Lives as long as its pool.
class Rescue {
 public:
  explicit Rescue(Pool& pool) : pool_(pool), timer_(timelyPool().context()) { wait(); }

 private:
  static constexpr std::chrono::seconds patience{1};
  static constexpr std::size_t step = 8;
  static constexpr std::size_t mostAdded = 256;

  void wait() {
    timer_.expires_after(patience);
    timer_.async_wait([this](const asio::error_code&) {
      look();
      wait();
    });
  }

  /// A pool that is merely busy, or has nothing to do, is no case for it.
  void look() {
    const std::uint64_t done = pool_.done;
    if (!asked_.exchange(true)) {
      asio::post(pool_.context(), [this] { asked_ = false; });
    } else if (done == doneBefore_ && added_ < mostAdded) {
      addThreads();
    }
    doneBefore_ = done;
  }

  void addThreads() {
    const HeldThreads others(threadsForOthers);
    const std::size_t grown = pool_.grow(step);  // when fewer, the next look asks again
    added_ += grown;
    static std::atomic<bool> told = false;
    if (grown == 0 && !told.exchange(true))
      Log::router().error("some work has to wait: {}", threadShortage().what());
  }

  Pool& pool_;
  asio::steady_timer timer_;
  std::atomic<bool> asked_ = false;  // and not answered yet
  std::uint64_t doneBefore_ = 0;
  std::size_t added_ = 0;
};

/// Starts with so many threads that some are left when a few hang.
Pool& makeRescuedPool() {
  auto& pool =
      *new Pool(std::max<std::size_t>(8, 4 * std::size_t{std::thread::hardware_concurrency()}));
  new Rescue(pool);
  return pool;
}

Pool& blockingPool() {
  static auto& pool = makeRescuedPool();
  return pool;
}

Pool& waitingPool() {
  static auto& pool = makeRescuedPool();
  return pool;
}

Pool& poolOf(SerialQueue::Lane lane) {
  switch (lane) {
    case SerialQueue::Lane::timely:
      return timelyPool();
    case SerialQueue::Lane::blocking:
      return blockingPool();
    case SerialQueue::Lane::waiting:
      return waitingPool();
  }
  std::unreachable();
}

}  // namespace

struct SerialQueue::State {
  State(std::string name, Lane lane)
      : label(std::move(name)), pool(poolOf(lane)), strand(pool.context().get_executor()) {}

  /// On the strand.
  void run(Work& work) noexcept {
    try {
      work();
    } catch (const std::exception& error) {
      tell(error.what());
    }
    pool.done += 1;
  }

  /// The same failure again and again, as of a timer, is told once.
  void tell(const char* failure) noexcept {
    if (lastFailure == failure) return;
    Log::router().error("{}: {}", label, failure);
    try {
      lastFailure = failure;
    } catch (const std::bad_alloc&) {
      lastFailure.clear();
    }
  }

  const std::string label;
  Pool& pool;
  Strand strand;
  std::string lastFailure;  // the strand's
};

void SerialQueue::prepareThreads() {
  HeldThreads others(threadsForOthers);
  for (const Lane lane : {Lane::timely, Lane::blocking, Lane::waiting}) {
    for (bool made = false; !made;) {
      try {
        poolOf(lane);
        made = true;
      } catch (const std::system_error&) {
        if (!others.letOneGo()) throw;
      }
    }
  }
}

SerialQueue::SerialQueue(std::string label, Lane lane)
    : state_(std::make_shared<State>(std::move(label), lane)) {}

SerialQueue::~SerialQueue() = default;

const std::string& SerialQueue::label() const noexcept { return state_->label; }

void SerialQueue::post(Work work) {
  asio::post(state_->strand,
             [state = state_, work = std::move(work)]() mutable { state->run(work); });
}

bool SerialQueue::isCurrent() const noexcept { return state_->strand.running_in_this_thread(); }

void SerialQueue::assertOtherLane() const noexcept {
  assert(!state_->pool.context().get_executor().running_in_this_thread() &&
         "an item waits for one of its own lane");
}

struct RepeatingTimer::State : std::enable_shared_from_this<State> {
  State(std::shared_ptr<SerialQueue::State> queueState, std::move_only_function<void()> work)
      : queue(std::move(queueState)), handler(std::move(work)), timer(queue->strand) {}

  void arm() {
    timer.expires_at(due);
    timer.async_wait(
        [self = shared_from_this(), armed = generation](const asio::error_code& error) {
          if (!error && armed == self->generation) self->fire(armed);
        });
  }

  void fire(unsigned armed) {
    queue->run(handler);
    const bool replaced = armed != generation;  // the handler set a new schedule, or stopped
    if (replaced) return;
    advance();
    arm();
  }

  void advance() {
    const auto now = std::chrono::steady_clock::now();
    due += interval;
    if (due <= now) due += ((now - due) / interval + 1) * interval;
  }

  const std::shared_ptr<SerialQueue::State> queue;
  std::move_only_function<void()> handler;

  // On the queue's strand only.
  asio::steady_timer timer;
  std::chrono::steady_clock::time_point due;
  RepeatingTimer::Duration interval{};
  unsigned generation = 0;  // counts schedules and stops: an armed wait of an older one is void
};

RepeatingTimer::RepeatingTimer(SerialQueue& queue, std::move_only_function<void()> handler)
    : state_(std::make_shared<State>(queue.state_, std::move(handler))) {}

RepeatingTimer::~RepeatingTimer() { stop(); }

void RepeatingTimer::schedule(Duration delay, Duration interval) {
  asio::dispatch(state_->queue->strand,
                 [state = state_, due = std::chrono::steady_clock::now() + delay, interval] {
                   state->generation += 1;
                   state->interval = interval;
                   state->due = due;
                   state->arm();
                 });
}

void RepeatingTimer::stop() {
  asio::dispatch(state_->queue->strand, [state = state_] {
    state->generation += 1;
    state->timer.cancel();
  });
}

void runInBackground(SerialQueue::Work work) {
  asio::post(blockingPool().context(), [work = std::move(work)]() mutable {
    try {
      work();
    } catch (const std::exception& error) {
      Log::router().error("background: {}", error.what());
    }
    blockingPool().done += 1;
  });
}

}  // namespace lenslark
