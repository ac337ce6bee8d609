#pragma once

#include <exception>
#include <string>

#include "base/Error.h"

namespace lenslark {

/// A command line that cannot be meant.
class UsageError final : public Error {
 public:
  static constexpr int exitStatus = 2;

  explicit UsageError(const std::string& message) : Error(message, "bad_args", exitStatus) {}
};

/// What a failed command tells the person and the shell. Exit statuses:
///
/// | status | meaning |
/// |---|---|
/// | 0 | success, also for the help text |
/// | 1 | a general failure: a file, a tool, a library, the disk |
/// | 2 | a usage error: bad or missing arguments |
/// | 3 | the menu-bar app did not answer, or a camera has no live feed |
/// | 4 | no device matches |
/// | 128 + signal | a signal ended it: `serve` at the second one, all else at the first |
namespace Failure {

/// Writes "error: ", the error's own words and a line feed to standard error; returns the status
/// to exit with, which is the error's own where it has one.
int report(const std::exception& error) noexcept;

}  // namespace Failure
}  // namespace lenslark
