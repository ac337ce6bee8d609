#include "commands/StopSignals.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <csignal>

namespace lenslark {

struct StopSignals::State {
  asio::io_context context{1};
  asio::signal_set signals{context};
};

StopSignals::StopSignals() : state_(std::make_unique<State>()) {
  state_->signals.add(SIGINT);
  state_->signals.add(SIGTERM);
  struct sigaction inherited = {};
  sigaction(SIGHUP, nullptr, &inherited);
  if (inherited.sa_handler != SIG_IGN) state_->signals.add(SIGHUP);
  state_->signals.async_wait([](const asio::error_code&, int) {});
}

StopSignals::~StopSignals() = default;

void StopSignals::wait() {
  state_->context.run();
  // Taking the last signal out of the set gives all of them their default action back.
  state_->signals.clear();
}

void StopSignals::cancel() {
  asio::post(state_->context, [this] { state_->signals.cancel(); });
}

}  // namespace lenslark
