#include "mcp/ProtocolChannel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>

namespace lenslark {
namespace {

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
    out = FileDescriptor(ends[0]);
    in = FileDescriptor(ends[1]);
  }
  FileDescriptor out;
  FileDescriptor in;
};

std::string readAll(const FileDescriptor& file) {
  std::string text;
  std::array<char, 1024> piece{};
  for (ssize_t count = 0; (count = ::read(file.get(), piece.data(), piece.size())) > 0;) {
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
  return text;
}

struct Said {
  std::string output;
  std::string errors;
};

/// What a process of its own says that holds a channel over `input`.
Said inAProcess(const std::string& input, const std::function<void(ProtocolChannel&)>& body) {
  Pipe requests;
  Pipe answers;
  Pipe errors;
  const pid_t child = ::fork();
  if (child == 0) {
    requests.in.reset();
    ::dup2(requests.out.get(), STDIN_FILENO);
    ::dup2(answers.in.get(), STDOUT_FILENO);
    ::dup2(errors.in.get(), STDERR_FILENO);
    ProtocolChannel channel;
    body(channel);
    std::fflush(nullptr);
    ::_exit(0);
  }
  answers.in.reset();
  errors.in.reset();
  writeAll(requests.in, std::as_bytes(std::span(input)), "requests");
  requests.in.reset();
  Said said{readAll(answers.out), readAll(errors.out)};
  ::waitpid(child, nullptr, 0);
  return said;
}

TEST(ProtocolChannelTest, onlyItsOwnLinesReachStandardOutput) {
  const Said said = inAProcess("", [](ProtocolChannel& channel) {
    std::printf("a library\n");
    std::fflush(stdout);
    std::cout << "a stream" << std::endl;
    EXPECT_EQ(::write(STDOUT_FILENO, "a call\n", 7), 7);
    EXPECT_EQ(std::system("echo a child"), 0);
    EXPECT_TRUE(channel.send("a line"));
  });
  EXPECT_EQ(said.output, "a line\n");
  EXPECT_EQ(said.errors, "a library\na stream\na call\na child\n");
}

TEST(ProtocolChannelTest, othersFindNothingOnStandardInput) {
  const Said said = inAProcess("a request\n", [](ProtocolChannel& channel) {
    char byte = 0;
    EXPECT_EQ(::read(STDIN_FILENO, &byte, 1), 0);
    EXPECT_EQ(std::system("cat"), 0);
    channel.send(readAll(channel.takeInput()));
  });
  EXPECT_EQ(said.output, "a request\n\n");
  EXPECT_EQ(said.errors, "");
}

/// How many descriptors a program has that is started here.
std::string inherited() {
  FILE* listing = ::popen("ls /proc/self/fd | wc -l", "re");
  std::array<char, 16> count{};
  const std::string text = std::fgets(count.data(), count.size(), listing);
  ::pclose(listing);
  return text;
}

TEST(ProtocolChannelTest, programsThatAreStartedDoNotInheritIt) {
  const Said said =
      inAProcess("", [](ProtocolChannel&) { std::fputs(inherited().c_str(), stderr); });
  EXPECT_EQ(said.errors, inherited());
}

}  // namespace
}  // namespace lenslark
