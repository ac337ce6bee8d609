#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"

/// Runs a decoder of untrusted files as a child process that cannot take more than it is given.
///
/// **Threads**: any. Blocks until the child has ended.
namespace lenslark::BoundedProcess {

struct Limits {
  std::size_t outputBytes = 0;
  std::size_t memoryBytes = std::size_t{2} << 30;
  /// Of the processor, and of the clock on the wall.
  std::chrono::seconds cpuTime{20};
  std::chrono::seconds wallTime{30};
};

/// What the program printed, once it has ended with status 0. Nothing when it failed or came to a
/// limit, which ends it. It reads `input` as its standard input, can write to no file, and what it
/// says on standard error is dropped. No shell is involved.
/// **Fails** with std::system_error when no child can be made.
std::optional<std::vector<std::byte>> run(const std::string& executable,
                                          const std::vector<std::string>& arguments,
                                          const FileDescriptor& input, const Limits& limits);

}  // namespace lenslark::BoundedProcess
