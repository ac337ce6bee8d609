#include "commands/DoctorCommand.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <string_view>

#include "base/Error.h"
#include "base/Text.h"
#include "commands/Output.h"
#include "commands/SharedControl.h"
#include "control/LenslarkControl.h"

namespace lenslark::DoctorCommand {
namespace {

constexpr std::chrono::milliseconds patience{1500};

std::string_view mark(Doctor::Level level) noexcept {
  switch (level) {
    case Doctor::Level::ok:
      return "✓ ";
    case Doctor::Level::warning:
      return "! ";
    case Doctor::Level::error:
      return "✗ ";
    case Doctor::Level::info:
      break;
  }
  return "· ";
}

nlohmann::json asJson(const std::vector<Doctor::Check>& checks) {
  auto list = nlohmann::json::array();
  for (const auto& check : checks) list.push_back(Doctor::json(check));
  return list;
}

}  // namespace

std::string text(const std::vector<Doctor::Check>& checks) {
  std::string text;
  for (const auto& check : checks) {
    text += mark(check.level);
    text += Text::printable(check.title) + "\n";
    for (const auto& detail : check.details) text += "    " + Text::printable(detail) + "\n";
    if (check.fix) text += "    fix: " + Text::printable(*check.fix) + "\n";
  }
  return text;
}

void run(const Arguments& arguments) {
  const CameraControl control = sharedControl();
  // Beside the rest where the system has a thread for it, else when it is asked for.
  constexpr auto beside = std::launch::async | std::launch::deferred;
  auto appStatus = std::async(beside, [] { return LenslarkControl::send("status", patience); });
  const auto checks = Doctor::run(
      control, [&] { return appStatus.get(); }, arguments.contains("--fix"));
  if (arguments.contains("--json")) {
    Output::printJSON(asJson(checks));
  } else {
    Output::print(text(checks));
  }
  const auto errors = std::ranges::count(checks, Doctor::Level::error, &Doctor::Check::level);
  if (errors > 0) throw Error(fmt::format("{} of {} checks failed", errors, checks.size()));
}

}  // namespace lenslark::DoctorCommand
