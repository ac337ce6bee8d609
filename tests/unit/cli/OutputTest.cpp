#include "commands/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <thread>

#include "support/CapturedOutput.h"
#include "support/Eventually.h"

namespace lenslark {
namespace {

TEST(OutputTest, printsALine) {
  EXPECT_EQ(capturedOutput([] { Output::printLine("one"); }), "one\n");
}

TEST(OutputTest, nothingBreaksALine) {
  EXPECT_EQ(capturedOutput([] { Output::printLine("a\nb\x1b[2J"); }), "a?b?[2J\n");
}

TEST(OutputTest, printsJsonIndentedWithSortedKeys) {
  EXPECT_EQ(capturedOutput([] {
              Output::printJSON({{"b", 1}, {"a", {true}}});
            }),
            "{\n  \"a\": [\n    true\n  ],\n  \"b\": 1\n}\n");
}

TEST(OutputTest, repairsTextThatIsNoUtf8InJson) {
  EXPECT_EQ(capturedOutput([] { Output::printJSON("a\xff"); }), "\"a\xEF\xBF\xBD\"\n");
}

TEST(OutputTest, tellsThatNobodyReads) {
  Output::surviveFailedWrites();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  const RedirectedOutput redirected(FileDescriptor{ends[1]});
  EXPECT_THROW(Output::printLine("one"), Output::Closed);
}

/// As a pipe that this process shares with one that set it so.
TEST(OutputTest, waitsWhereThePipeDoesNot) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  FileDescriptor output(ends[1]);
  ASSERT_EQ(::fcntl(output.get(), F_SETFL, O_NONBLOCK), 0);
  const auto isFull = [end = ends[1]] {
    pollfd room{.fd = end, .events = POLLOUT, .revents = 0};
    return ::poll(&room, 1, 0) == 0;
  };
  std::string seen;
  std::jthread reader([&, input = FileDescriptor(ends[0])] {
    EXPECT_TRUE(eventually(isFull, std::chrono::seconds(60)));
    std::array<char, 65536> piece{};
    for (ssize_t count = 1; count > 0;) {
      count = ::read(input.get(), piece.data(), piece.size());
      if (count > 0) seen.append(piece.data(), static_cast<std::size_t>(count));
    }
  });
  const std::string text(1'000'000, 'x');
  {
    const RedirectedOutput redirected(output);
    EXPECT_NO_THROW(Output::print(text));
  }
  output.reset();
  reader.join();
  EXPECT_TRUE(seen == text) << seen.size() << " bytes";
}

TEST(OutputTest, aFullDiskIsAnError) {
  const RedirectedOutput redirected(FileDescriptor::open("/dev/full", O_WRONLY));
  EXPECT_THROW(Output::printLine("one"), std::system_error);
}

TEST(OutputTest, aFileThatMayNotGrowIsAnError) {
  Output::surviveFailedWrites();
  const RedirectedOutput redirected(FileDescriptor{memfd_create("output", MFD_CLOEXEC)});
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit none{0, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &none);
  EXPECT_THROW(Output::printLine("one"), std::system_error);
  ::setrlimit(RLIMIT_FSIZE, &before);
}

}  // namespace
}  // namespace lenslark
