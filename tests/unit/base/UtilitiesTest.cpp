#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <set>

#include "base/Clock.h"
#include "base/Error.h"
#include "base/Log.h"
#include "base/MappedFile.h"
#include "base/PosixError.h"
#include "base/Uuid.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

TEST(PosixErrorTest, isAnErrorOfTheStandardToo) {
  EXPECT_EQ(posixError(ENOSPC, "x").code(), std::errc::no_space_on_device);
  EXPECT_NE(posixError(ENOSPC, "x").code(), std::errc::io_error);
}

TEST(PosixErrorTest, saysWhatToDoAboutAShortageAlone) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ(posixError(EMFILE, "x").what(), "x: Too many open files; the limit is " +
                                                std::to_string(limit.rlim_cur) +
                                                ", raise it (`ulimit -n`)");
  EXPECT_STREQ(posixError(EACCES, "x").what(), "x: Permission denied");
}

TEST(PosixErrorTest, saysWhatFailedAndWhy) {
  const std::system_error error = posixError(ENOSPC, "/tmp/lenslark.shm");
  EXPECT_STREQ(error.what(), "/tmp/lenslark.shm: No space left on device; make room there");
  EXPECT_EQ(error.code().value(), ENOSPC);
}

TEST(PosixErrorTest, takesUnknownNumbersForInputOutputErrors) {
  for (const int number : {0, -1, 99999}) EXPECT_EQ(posixError(number, "x").code().value(), EIO);
}

TEST(PosixErrorTest, throwsThePresentError) {
  errno = EACCES;
  EXPECT_THROW(throwErrno("x"), std::system_error);
}

TEST(ErrorTest, carriesCodeAndExitStatus) {
  const Error plain("message");
  EXPECT_STREQ(plain.what(), "message");
  EXPECT_EQ(plain.code(), "internal");
  EXPECT_EQ(plain.exitStatus(), 1);
  const Error special("message", "bad_args", 2);
  EXPECT_EQ(special.code(), "bad_args");
  EXPECT_EQ(special.exitStatus(), 2);
}

TEST(ErrorTest, saysTooWhatStandsBehindANulByte) {
  const Error error(std::string("a\0b\0", 4));
  EXPECT_STREQ(error.what(),
               "a\xEF\xBF\xBD"
               "b"
               "\xEF\xBF\xBD");
}

TEST(UuidTest, hasTheFormOfARandomOne) {
  const std::string uuid = Uuid::make();
  ASSERT_EQ(uuid.size(), 36U);
  for (std::size_t index = 0; index < uuid.size(); ++index) {
    const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
    const bool digit = std::string_view("0123456789ABCDEF").contains(uuid[index]);
    EXPECT_TRUE(dash ? uuid[index] == '-' : digit) << uuid;
  }
  EXPECT_EQ(uuid[14], '4');
  EXPECT_TRUE(std::string_view("89AB").contains(uuid[19])) << uuid;
}

TEST(UuidTest, isAnotherEachTime) {
  std::set<std::string> seen;
  for (int index = 0; index < 1000; ++index) seen.insert(Uuid::make());
  EXPECT_EQ(seen.size(), 1000U);
}

TEST(ClockTest, countsUptimeUpwards) {
  const auto first = Clock::uptimeNanoseconds();
  EXPECT_GT(first, 0U);
  EXPECT_GE(Clock::uptimeNanoseconds(), first);
  EXPECT_GE(Clock::uptimeSeconds(), static_cast<double>(first) / 1e9);
}

TEST(ClockTest, tellsTheDateToTheSecond) {
  const auto before = std::chrono::system_clock::now() - std::chrono::seconds(1);
  const Date now = Clock::now();
  EXPECT_GT(now, before);
  EXPECT_LE(now, std::chrono::system_clock::now());
}

// In a process of its own: it takes standard error away.
TEST(LogDeathTest, aReaderWhoTakesNothingHoldsNobodyUp) {
  const auto body = [] {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_NONBLOCK) != 0) ::_exit(1);
    const std::string much(1 << 20, 'x');
    while (::write(ends[1], much.data(), much.size()) > 0) {
    }
    ::fcntl(ends[1], F_SETFL, 0);
    ::dup2(ends[1], STDERR_FILENO);
    Log::mirrorToStandardError();
    ::alarm(20);
    Log::router().error("nobody reads this");
    ::_exit(7);
  };
  EXPECT_EXIT(body(), testing::ExitedWithCode(7), "");
}

TEST(MappedFileTest, sharesItsBytesWithTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", std::string(4096, 'a'));
  const FileDescriptor file = FileDescriptor::open(path, O_RDWR);
  MappedFile first = MappedFile::map(file, 4096, MappedFile::Access::readWrite);
  const MappedFile second = std::move(first);
  ASSERT_EQ(second.size(), 4096U);
  second.data()[1] = std::byte{'b'};
  EXPECT_EQ(readFile(path).substr(0, 3), "aba");
  EXPECT_EQ(first.data(), nullptr);
}

TEST(MappedFileTest, failsForADirectory) {
  const FileDescriptor directory = FileDescriptor::open("/", O_RDONLY);
  EXPECT_THROW(MappedFile::map(directory, 4096, MappedFile::Access::read), std::system_error);
}

}  // namespace
}  // namespace lenslark
