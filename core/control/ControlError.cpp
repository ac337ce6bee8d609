#include "control/ControlError.h"

#include <fmt/core.h>

#include "base/Text.h"

namespace lenslark {

ControlError::ControlError(Kind kind, const std::string& message, std::string_view code,
                           int exitStatus)
    : Error(message, code, exitStatus), kind_(kind) {}

ControlError ControlError::badArgs(const std::string& message) {
  return {Kind::badArgs, message, "bad_args", 2};
}

ControlError ControlError::unknownSource(std::string_view kind) {
  return badArgs(fmt::format(
      "unknown source \"{}\" (desktop, image, video, slideshow, pattern, display, window)",
      Text::repairUtf8(kind)));
}

ControlError ControlError::deviceNotFound(std::string_view selector) {
  return {Kind::deviceNotFound,
          fmt::format("No device matches \"{}\". Run `lenslark devices`.", selector),
          "device_not_found", 4};
}

ControlError ControlError::appNotRunning(const std::string& message) {
  return {Kind::appNotRunning, message, "app_not_running", 3};
}

}  // namespace lenslark
