#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "devices/Shell.h"
#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using testing::HasSubstr;

/// Runs a script that tells of itself in a file; the file's text once that is whole.
class DetachedLaunchTest : public testing::Test {
 protected:
  pid_t launch(const std::string& text, const Shell::Environment& environment = {}) {
    const std::string out = (directory_ / "out").string();
    return Shell::launchDetached(
        "/bin/sh",
        {"-c", "{ " + text + "; } > '" + out + ".part'; mv '" + out + ".part' '" + out + "'"},
        environment);
  }

  std::string told() {
    const auto out = directory_ / "out";
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(out); }));
    return readFile(out.string());
  }

  TemporaryDirectory directory_;
};

TEST_F(DetachedLaunchTest, returnsThePidOfTheProgramItself) {
  const pid_t pid = launch("echo $$");
  EXPECT_EQ(told(), std::to_string(pid) + "\n");
}

TEST_F(DetachedLaunchTest, theProgramIsNoChildOfOurs) {
  launch("true");
  told();
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(DetachedLaunchTest, theProgramHasASessionOfItsOwn) {
  // Fields 6 and 7 of stat: the session, and the terminal, which is 0 where there is none.
  const pid_t pid = launch("cut -d ' ' -f 6,7 /proc/$$/stat");
  const std::string text = told();
  const auto words = Text::split(Text::trim(text), ' ');
  ASSERT_EQ(words.size(), 2U);
  EXPECT_NE(words[0], std::to_string(::getsid(0)));
  EXPECT_NE(words[0], std::to_string(pid)) << "a session leader could take a terminal";
  EXPECT_EQ(words[1], "0");
}

TEST_F(DetachedLaunchTest, itsStandardStreamsAreTheNullDevice) {
  const pid_t pid = Shell::launchDetached("/bin/sleep", {"60"});
  for (const char* stream : {"0", "1", "2"}) {
    const auto link = "/proc/" + std::to_string(pid) + "/fd/" + stream;
    EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/null");
  }
  ::kill(pid, SIGKILL);
}

TEST_F(DetachedLaunchTest, itGetsNoDescriptorOfOurs) {
  const FileDescriptor inheritable(::open("/dev/null", O_RDONLY));  // as a library may leave it
  const pid_t pid = Shell::launchDetached("/bin/sleep", {"60"});
  const auto descriptors = [pid] {
    const std::filesystem::directory_iterator open("/proc/" + std::to_string(pid) + "/fd");
    return std::distance(open, {});
  };
  // The new program has its libraries open while it loads them.
  EXPECT_TRUE(eventually([&] { return descriptors() == 3; }));
  ::kill(pid, SIGKILL);
}

TEST_F(DetachedLaunchTest, itHasOurEnvironmentAndTheAdditions) {
  launch("echo \"$ADDED $PATH\"", {{"ADDED", "yes"}});
  EXPECT_EQ(told(), "yes " + std::string(std::getenv("PATH")) + "\n");
}

TEST_F(DetachedLaunchTest, itIsFreeOfOurSignalSettings) {
  const auto before = signal(SIGHUP, SIG_IGN);
  launch("grep -E '^Sig(Blk|Ign):' /proc/self/status");
  signal(SIGHUP, before);
  // The C library keeps signals 32 and 33 to itself; whoever started us may have them ignored.
  EXPECT_THAT(told(), testing::MatchesRegex("SigBlk:\t0+\nSigIgn:\t0+[01]?[08]?0000000\n"));
}

TEST_F(DetachedLaunchTest, aMissingProgramIsAnErrorThatNamesIt) {
  try {
    Shell::launchDetached("/nowhere/emulator", {});
    FAIL() << "a missing program was started";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
    EXPECT_THAT(error.what(), HasSubstr("/nowhere/emulator"));
  }
}

TEST_F(DetachedLaunchTest, returnsWhileTheProgramRuns) {
  const pid_t pid = Shell::launchDetached("/bin/sleep", {"60"});
  EXPECT_EQ(::kill(pid, 0), 0);
  ::kill(pid, SIGKILL);
}

}  // namespace
}  // namespace lenslark
