#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace lenslark {

/// A failure in words that a person can act on. Each subsystem derives one final class from it.
/// The code is a stable word for machines; the exit status is what a command that fails with
/// this error ends with.
class Error : public std::runtime_error {
 public:
  static constexpr int generalFailure = 1;

  explicit Error(const std::string& message, std::string_view code = "internal",
                 int exitStatus = generalFailure);
  ~Error() override;

  const std::string& code() const noexcept { return code_; }
  int exitStatus() const noexcept { return exitStatus_; }

 private:
  std::string code_;
  int exitStatus_;
};

}  // namespace lenslark
