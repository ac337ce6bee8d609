#include "media/BoundedProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

std::optional<std::string> runShell(const std::string& script, const BoundedProcess::Limits& limits,
                                    const std::string& input = "") {
  const TemporaryDirectory directory;
  const FileDescriptor file = FileDescriptor::open(directory.write("input", input), O_RDONLY);
  const auto output = BoundedProcess::run("/bin/sh", {"-c", script}, file, limits);
  if (!output) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(output->data()), output->size());
}

TEST(BoundedProcessTest, givesTheOutputOfWhatItReads) {
  EXPECT_EQ(runShell("tr a-z A-Z", {.outputBytes = 100}, "abc"), "ABC");
}

TEST(BoundedProcessTest, readsTheInputFromItsStartEachTime) {
  const TemporaryDirectory directory;
  const FileDescriptor file = FileDescriptor::open(directory.write("input", "abc"), O_RDONLY);
  for (int i = 0; i < 2; ++i) {
    const auto output = BoundedProcess::run("/bin/cat", {}, file, {.outputBytes = 100});
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), 3U);
  }
}

TEST(BoundedProcessTest, givesNothingForAFailedProgram) {
  EXPECT_FALSE(runShell("echo half; exit 3", {.outputBytes = 100}));
  const TemporaryDirectory directory;
  const FileDescriptor file = FileDescriptor::open(directory.write("input", ""), O_RDONLY);
  EXPECT_FALSE(BoundedProcess::run("/no/such/program", {}, file, {.outputBytes = 100}));
}

TEST(BoundedProcessTest, endsAProgramThatWritesTooMuch) {
  EXPECT_FALSE(runShell("yes", {.outputBytes = 1U << 20}));
}

TEST(BoundedProcessTest, endsAProgramThatTakesTooLong) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(runShell("sleep 60", {.outputBytes = 100, .wallTime = std::chrono::seconds(1)}));
  // Also one that has closed its output.
  EXPECT_FALSE(
      runShell("exec >&-; sleep 60", {.outputBytes = 100, .wallTime = std::chrono::seconds(1)}));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(BoundedProcessTest, endsAProgramThatComputesTooLong) {
  EXPECT_FALSE(
      runShell("while :; do :; done", {.outputBytes = 100, .cpuTime = std::chrono::seconds(1)}));
}

TEST(BoundedProcessTest, boundsTheMemoryOfAProgram) {
  const std::string take = "head -c 200000000 /dev/zero | tail -c 150000000 | wc -c";
  EXPECT_EQ(runShell(take, {.outputBytes = 100}), "150000000\n");
  const auto bounded = runShell(take, {.outputBytes = 100, .memoryBytes = 64U << 20});
  EXPECT_NE(bounded, "150000000\n");
}

TEST(BoundedProcessTest, letsAProgramWriteNoFile) {
  const TemporaryDirectory directory;
  const std::string target = (directory / "file").string();
  EXPECT_EQ(
      runShell("echo text > " + target + " 2>/dev/null; wc -c < " + target, {.outputBytes = 100}),
      "0\n");
}

TEST(BoundedProcessTest, learnsHowAProgramEndedWhereChildrenWereIgnored) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(runShell("echo done", {.outputBytes = 100}), "done\n");
  std::signal(SIGCHLD, before);
}

TEST(BoundedProcessTest, handsNoDescriptorsOn) {
  constexpr int number = 57;
  const FileDescriptor null = FileDescriptor::open("/dev/null", O_RDONLY);
  const FileDescriptor inheritable(::dup2(null.get(), number));
  EXPECT_EQ(runShell("[ -e /proc/self/fd/57 ] && echo open || echo closed", {.outputBytes = 100}),
            "closed\n");
}

}  // namespace
}  // namespace lenslark
