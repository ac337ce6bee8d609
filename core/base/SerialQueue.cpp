#include "base/SerialQueue.h"

#include <algorithm>
#include <asio/dispatch.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <asio/thread_pool.hpp>
#include <thread>
#include <utility>

#include "base/Log.h"

namespace lenslark {
namespace {

using Strand = asio::strand<asio::thread_pool::executor_type>;

// The pools live until the process ends: a queue in a static object may still need them while
// others are being destroyed, so they are never torn down.
asio::thread_pool& timelyPool() {
  static auto& pool = *new asio::thread_pool(2);
  return pool;
}

/// So many threads that some are left when a few hang in a disk or a device.
std::size_t manyThreads() {
  return std::max<std::size_t>(8, 4 * std::size_t{std::thread::hardware_concurrency()});
}

asio::thread_pool& blockingPool() {
  static auto& pool = *new asio::thread_pool(manyThreads());
  return pool;
}

asio::thread_pool& waitingPool() {
  static auto& pool = *new asio::thread_pool(manyThreads());
  return pool;
}

asio::thread_pool& pool(SerialQueue::Lane lane) {
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

void runLogged(const std::string& label, std::move_only_function<void()>& work) {
  try {
    work();
  } catch (const std::exception& error) {
    Log::router().error("{}: {}", label, error.what());
  }
}

}  // namespace

struct SerialQueue::State {
  State(std::string name, Lane lane) : label(std::move(name)), strand(pool(lane).get_executor()) {}

  const std::string label;
  Strand strand;
};

SerialQueue::SerialQueue(std::string label, Lane lane)
    : state_(std::make_shared<State>(std::move(label), lane)) {}

SerialQueue::~SerialQueue() = default;

const std::string& SerialQueue::label() const noexcept { return state_->label; }

void SerialQueue::post(Work work) {
  asio::post(state_->strand,
             [state = state_, work = std::move(work)]() mutable { runLogged(state->label, work); });
}

bool SerialQueue::isCurrent() const noexcept { return state_->strand.running_in_this_thread(); }

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
    runLogged(queue->label, handler);
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
  asio::post(blockingPool(), [work = std::move(work)]() mutable { runLogged("background", work); });
}

}  // namespace lenslark
