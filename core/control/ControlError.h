#pragma once

#include <string>
#include <string_view>

#include "base/Error.h"

namespace lenslark {

/// A request that cannot be carried out, in words for whoever made it.
class ControlError final : public Error {
 public:
  enum class Kind { badArgs, deviceNotFound, appNotRunning };

  /// Something is missing from the request or wrong in it: "bad_args", exit status 2.
  static ControlError badArgs(const std::string& message);
  /// A kind of source that is none: "bad_args" too.
  static ControlError unknownSource(std::string_view kind);
  /// Nothing connected or remembered answers to this selector: "device_not_found", exit status 4.
  static ControlError deviceNotFound(std::string_view selector);
  /// No one feeds the cameras now: "app_not_running", exit status 3.
  static ControlError appNotRunning(const std::string& message);

  Kind kind() const noexcept { return kind_; }

 private:
  ControlError(Kind kind, const std::string& message, std::string_view code, int exitStatus);

  Kind kind_;
};

}  // namespace lenslark
