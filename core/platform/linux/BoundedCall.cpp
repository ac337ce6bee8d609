#include "platform/linux/BoundedCall.h"

#include <signal.h>

#include <thread>

namespace lenslark {

void BoundedCall::Call::end() {
  const std::lock_guard lock(calls_->mutex);
  ended_ = true;
  if (givenUp_) calls_->hanging -= 1;
}

bool BoundedCall::Call::giveUp() {
  const std::lock_guard lock(calls_->mutex);
  if (ended_) return false;
  givenUp_ = true;
  calls_->hanging += 1;
  return true;
}

bool BoundedCall::hanging() const {
  const std::lock_guard lock(calls_->mutex);
  return calls_->hanging > 0;
}

void BoundedCall::runAlone(std::move_only_function<void()> work) {
  std::thread([work = std::move(work)]() mutable {
    // The process's signals are for its other threads; and a server that goes away while it is
    // written to must not end the process.
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    work();
  }).detach();
}

}  // namespace lenslark
