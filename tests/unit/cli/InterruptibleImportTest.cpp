#include "commands/InterruptibleImport.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace lenslark {
namespace {

// Signals concern a whole process: each test has one of its own.

TEST(InterruptibleImportDeathTest, aSignalCallsTheImportOffAtItsNextReport) {
  const auto body = [] {
    importing([](const auto& progress) {
      raise(SIGTERM);
      progress("clip.mov", {});
      _exit(7);
      return 0;
    });
  };
  EXPECT_EXIT(body(), testing::KilledBySignal(SIGTERM), "");
}

TEST(InterruptibleImportDeathTest, aSignalAfterTheLastReportIsNotLost) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const auto body = [signal] {
      importing([signal](const auto&) { return raise(signal); });
      _exit(7);
    };
    EXPECT_EXIT(body(), testing::KilledBySignal(signal), "") << signal;
  }
}

TEST(InterruptibleImportDeathTest, anIgnoredHangupStaysIgnored) {
  const auto body = [] {
    std::signal(SIGHUP, SIG_IGN);
    importing([](const auto& progress) {
      raise(SIGHUP);
      if (progress) progress("clip.mov", {});
      return 0;
    });
    _exit(7);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace lenslark
