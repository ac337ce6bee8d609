#include "commands/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <system_error>

#include "support/CapturedOutput.h"

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
