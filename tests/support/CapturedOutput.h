#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "base/FileDescriptor.h"

namespace lenslark {

/// Sends the process's standard output elsewhere as long as it lives.
class RedirectedOutput {
 public:
  explicit RedirectedOutput(const FileDescriptor& target) : saved_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(target.get(), STDOUT_FILENO);
  }
  ~RedirectedOutput() {
    std::fflush(stdout);
    dup2(saved_.get(), STDOUT_FILENO);
  }
  RedirectedOutput(const RedirectedOutput&) = delete;
  RedirectedOutput& operator=(const RedirectedOutput&) = delete;

 private:
  FileDescriptor saved_;
};

/// What `body` writes to standard output.
template <typename Body>
std::string capturedOutput(Body&& body) {
  const FileDescriptor file(memfd_create("output", MFD_CLOEXEC));
  {
    const RedirectedOutput redirected(file);
    body();
  }
  std::string text;
  std::array<std::byte, 4096> buffer;
  for (off_t offset = 0;;) {
    const auto count = readAt(file, buffer, offset);
    if (count <= 0) return text;
    text.append(reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(count));
    offset += count;
  }
}

}  // namespace lenslark
