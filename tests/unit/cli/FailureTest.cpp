#include "commands/Failure.h"

#include <gtest/gtest.h>

#include "base/PosixError.h"

namespace lenslark {
namespace {

struct Reported {
  int status;
  std::string text;
};

Reported report(const std::exception& error) {
  testing::internal::CaptureStderr();
  const int status = Failure::report(error);
  return {status, testing::internal::GetCapturedStderr()};
}

TEST(FailureTest, reportsAnErrorWithItsOwnWordsAndStatus) {
  const auto reported = report(Error("No device matches \"x\".", "device_not_found", 4));
  EXPECT_EQ(reported.text, "error: No device matches \"x\".\n");
  EXPECT_EQ(reported.status, 4);
}

TEST(FailureTest, aUsageErrorEndsWithTwo) {
  EXPECT_EQ(report(UsageError("--scale expects a number")).status, 2);
}

TEST(FailureTest, aSystemErrorNamesThePathAndEndsWithOne) {
  const auto reported = report(posixError(ENOSPC, "/tmp/lenslark.shm"));
  EXPECT_EQ(reported.text, "error: /tmp/lenslark.shm: No space left on device; make room there\n");
  EXPECT_EQ(reported.status, 1);
}

TEST(FailureTest, aToolsLinesStayAndItsEscapesDoNot) {
  EXPECT_EQ(report(std::runtime_error("one\n\ttwo\x1b[2J\r")).text, "error: one\n\ttwo?[2J?\n");
}

TEST(FailureTest, anyOtherExceptionEndsWithOne) {
  EXPECT_EQ(report(std::runtime_error("odd")).status, 1);
}

}  // namespace
}  // namespace lenslark
