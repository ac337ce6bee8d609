#include "commands/StopSignals.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace lenslark {
namespace {

// Signals concern a whole process: each test has one of its own.

[[noreturn]] void waitAfter(int signal) {
  StopSignals signals;
  raise(signal);
  signals.wait();
  _exit(7);
}

TEST(StopSignalsDeathTest, aFirstSignalIsKeptForTheWait) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EXIT(waitAfter(signal), testing::ExitedWithCode(7), "") << signal;
  }
}

TEST(StopSignalsDeathTest, aSecondSignalEndsTheProcessAtOnce) {
  const auto body = [] {
    StopSignals signals;
    raise(SIGINT);
    signals.wait();
    raise(SIGINT);
    _exit(7);
  };
  EXPECT_EXIT(body(), testing::KilledBySignal(SIGINT), "");
}

TEST(StopSignalsDeathTest, aSecondSignalOfAnotherKindDoesToo) {
  const auto body = [] {
    StopSignals signals;
    raise(SIGINT);
    signals.wait();
    raise(SIGTERM);
    _exit(7);
  };
  EXPECT_EXIT(body(), testing::KilledBySignal(SIGTERM), "");
}

TEST(StopSignalsDeathTest, catchesSigintEvenInABackgroundJob) {
  const auto body = [] {
    std::signal(SIGINT, SIG_IGN);
    waitAfter(SIGINT);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(7), "");
}

TEST(StopSignalsDeathTest, leavesAnIgnoredHangupIgnored) {
  const auto body = [] {
    std::signal(SIGHUP, SIG_IGN);
    StopSignals signals;
    raise(SIGHUP);
    std::jthread later([&] { signals.cancel(); });
    signals.wait();
    raise(SIGHUP);
    later.join();
    _exit(7);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(7), "");
}

TEST(StopSignalsDeathTest, cancelEndsTheWait) {
  const auto body = [] {
    StopSignals signals;
    std::jthread later([&] { signals.cancel(); });
    signals.wait();
    later.join();
    _exit(7);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace lenslark
