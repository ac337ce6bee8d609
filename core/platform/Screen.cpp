#include "platform/Screen.h"

#include <fmt/core.h>

namespace lenslark {

CaptureError CaptureError::noDisplay(std::int64_t index) {
  return CaptureError(
      fmt::format("No display at index {}. Run `lenslark sources` to list them.", index));
}

CaptureError CaptureError::noWindow(const std::string& match) {
  return CaptureError(fmt::format(
      "No on-screen window matches \"{}\". Run `lenslark sources` to list them.", match));
}

CaptureError CaptureError::unavailable(const std::string& reason) {
  return CaptureError(fmt::format("The screen cannot be captured: {}", reason));
}

}  // namespace lenslark
