#include "devices/Shell.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <string>
#include <system_error>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

Shell::Result script(const std::string& text, const Shell::Environment& environment = {},
                     Shell::StandardInput input = Shell::StandardInput::inherited) {
  return Shell::run("/bin/sh", {"-c", text}, environment, input);
}

TEST(ShellTest, givesBackWhatAProgramPrinted) {
  const auto result = script("printf ' out\\n\\n'; printf 'err ' >&2");
  EXPECT_EQ(result.output, " out\n\n");
  EXPECT_EQ(result.errors, "err ");
  EXPECT_EQ(result.status, 0);
}

TEST(ShellTest, givesBackTheExitStatus) { EXPECT_EQ(script("exit 7").status, 7); }

TEST(ShellTest, aSignalIsToldFromSuccess) { EXPECT_EQ(script("kill -KILL $$").status, 128 + 9); }

TEST(ShellTest, passesArgumentsAsTheyAre) {
  const auto result = Shell::run("/usr/bin/printf", {"%s|", "a b", "", "$HOME", "*", "ü"});
  EXPECT_EQ(result.output, "a b||$HOME|*|ü|");
}

TEST(ShellTest, aProgramThatFillsTheErrorPipeFirstIsNotHeldUp) {
  const auto result = script("head -c 1000000 /dev/zero | tr '\\0' e >&2; echo done");
  EXPECT_EQ(result.errors.size(), 1000000U);
  EXPECT_EQ(result.output, "done\n");
}

TEST(ShellTest, aProgramThatFillsBothPipesInTurnIsNotHeldUp) {
  const auto result =
      script("for i in 1 2 3 4 5; do head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2; done");
  EXPECT_EQ(result.output.size(), 1500000U);
  EXPECT_EQ(result.errors.size(), 1500000U);
}

TEST(ShellTest, withoutAdditionsTheEnvironmentIsOurs) {
  const ScopedVariable variable("LENSLARK_SHELL_TEST", "a=b c");
  const auto result = Shell::run("/usr/bin/env", {"-0"});
  std::string ours;
  for (char** entry = environ; *entry != nullptr; ++entry) ours += std::string(*entry) + '\0';
  EXPECT_EQ(result.output, ours);
}

TEST(ShellTest, anAdditionReplacesOurVariable) {
  const ScopedVariable variable("LENSLARK_SHELL_TEST", "ours");
  const auto result = Shell::run("/usr/bin/env", {}, {{"LENSLARK_SHELL_TEST", "theirs"}});
  EXPECT_THAT(result.output, HasSubstr("LENSLARK_SHELL_TEST=theirs\n"));
  EXPECT_THAT(result.output, testing::Not(HasSubstr("LENSLARK_SHELL_TEST=ours")));
}

TEST(ShellTest, anAdditionKeepsOurOtherVariables) {
  const ScopedVariable variable("LENSLARK_SHELL_TEST", "ours");
  const auto result = Shell::run("/usr/bin/env", {}, {{"LENSLARK_OTHER", "new"}});
  EXPECT_THAT(result.output, HasSubstr("LENSLARK_SHELL_TEST=ours\n"));
  EXPECT_THAT(result.output, HasSubstr("LENSLARK_OTHER=new\n"));
}

TEST(ShellTest, repairsWhatIsNotUtf8) {
  const auto result = script("printf 'a\\377b'; printf '\\303(' >&2");
  EXPECT_EQ(result.output,
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(result.errors, "\xEF\xBF\xBD(");
}

TEST(ShellTest, aMissingProgramIsAnErrorThatNamesIt) {
  try {
    Shell::run("/nowhere/tool", {});
    FAIL() << "a missing program was run";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
    EXPECT_THAT(error.what(), HasSubstr("/nowhere/tool"));
  }
}

TEST(ShellTest, aProgramThatMayNotBeRunIsAnError) {
  const TemporaryDirectory directory;
  try {
    Shell::run(directory.write("tool", "#!/bin/sh\n"), {});
    FAIL() << "a file without the right to be executed was run";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EACCES);
  }
}

TEST(ShellTest, looksForNothingOnPath) {
  EXPECT_THROW(Shell::run("sh", {"-c", "true"}), std::system_error);
}

TEST(ShellTest, aMissingProgramLeavesNoDescriptorOpen) {
  const auto openFiles = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = openFiles();
  EXPECT_THROW(Shell::run("/nowhere/tool", {}), std::system_error);
  EXPECT_EQ(openFiles(), before);
}

TEST(ShellTest, aProgramGetsTheStandardStreamsAlone) {
  const FileDescriptor inheritable(::open("/dev/null", O_RDONLY));  // as a library may leave it
  const auto result = script(
      "for number in $(seq 0 99); do test -e /proc/$$/fd/$number && printf '%s ' $number; done");
  EXPECT_EQ(result.output, "0 1 2 ");
}

TEST(ShellTest, standardInputCanBeTheNullDevice) {
  const auto result = script("readlink /proc/$$/fd/0", {}, Shell::StandardInput::null);
  EXPECT_EQ(result.output, "/dev/null\n");
}

TEST(ShellTest, standardInputIsOursOtherwise) {
  const auto ours = std::filesystem::read_symlink("/proc/self/fd/0").string();
  EXPECT_EQ(Text::trim(script("readlink /proc/$$/fd/0").output), ours);
}

TEST(ShellTest, aProgramIsFreeOfOurSignalSettings) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto pipeBefore = signal(SIGPIPE, SIG_IGN);
  const auto result = Shell::run("/bin/grep", {"-E", "^Sig(Blk|Ign):", "/proc/self/status"});
  signal(SIGPIPE, pipeBefore);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  // The C library ignores its own two signals, 32 and 33, on behalf of whatever it starts.
  EXPECT_THAT(result.output, MatchesRegex("SigBlk:\t0+\nSigIgn:\t0+[01]?[08]?0000000\n"));
}

TEST(ShellTest, keepsNoMoreThanItsLimitOfAFlood) {
  const auto wanted = Shell::outputLimit + 1'000'000;
  const auto result =
      script("head -c " + std::to_string(wanted) + " /dev/zero | tr '\\0' x; exit 3");
  EXPECT_EQ(result.output.size(), Shell::outputLimit);
  EXPECT_EQ(result.status, 3);
}

TEST(ShellTest, manyProgramsRunAtOnce) {
  std::vector<std::future<Shell::Result>> runs;
  for (int number = 0; number < 16; ++number) {
    runs.push_back(std::async(std::launch::async, [number] {
      return script("head -c 200000 /dev/zero >&2; echo " + std::to_string(number));
    }));
  }
  for (int number = 0; number < 16; ++number) {
    EXPECT_EQ(runs[static_cast<std::size_t>(number)].get().output, std::to_string(number) + "\n");
  }
}

}  // namespace
}  // namespace lenslark
