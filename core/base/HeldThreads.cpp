#include "base/HeldThreads.h"

#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <exception>
#include <latch>
#include <memory>
#include <thread>

namespace lenslark {

struct HeldThreads::Held {
  struct State {
    std::latch begun{1};
    std::latch released{1};
    pid_t id = 0;  // constant once it has begun
  };

  std::unique_ptr<State> state = std::make_unique<State>();
  std::thread thread{[own = state.get()] {
    own->id = ::gettid();
    own->begun.count_down();
    own->released.wait();
  }};
};

HeldThreads::HeldThreads(std::size_t count) {
  try {
    threads_.reserve(count);
    while (threads_.size() < count) threads_.emplace_back();
  } catch (const std::exception&) {
    // There are no more.
  }
}

HeldThreads::~HeldThreads() {
  while (letOneGo()) {
  }
}

std::size_t HeldThreads::count() const noexcept { return threads_.size(); }

bool HeldThreads::letOneGo() noexcept {
  if (threads_.empty()) return false;
  Held& last = threads_.back();
  last.state->begun.wait();
  last.state->released.count_down();
  last.thread.join();
  // The system counts it for a moment longer than it runs.
  while (::tgkill(::getpid(), last.state->id, 0) == 0) ::sched_yield();
  threads_.pop_back();
  return true;
}

}  // namespace lenslark
