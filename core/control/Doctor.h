#pragma once

#include <filesystem>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "control/CameraControl.h"
#include "devices/AndroidEmulator.h"
#include "platform/RunningApplications.h"

/// Looks over the whole installation and mends what it can: frame files that were left behind.
///
/// **Threads**: any. Never **fails**: what cannot be looked at is a finding or is left out.
namespace lenslark::Doctor {

enum class Level { ok, warning, error, info };

/// "ok", "warning", "error", "info".
std::string_view rawValue(Level level) noexcept;

/// One finding.
struct Check {
  Level level = Level::ok;
  std::string title;
  std::vector<std::string> details;
  std::optional<std::string> fix;  ///< What the user should do.

  friend bool operator==(const Check&, const Check&) = default;
};

nlohmann::json json(const Check& check);

/// What the checks look at beside settings and devices; by default the machine that they run on.
struct Surroundings {
  std::function<std::optional<RunningApplications::Application>()> application;
  std::function<bool(const std::string& udid)> injectorEnabled;
  std::function<std::vector<AndroidEmulator::RunningEmulator>()> emulators;
  std::filesystem::path feedDirectory;

  static Surroundings machine();
};

/// What the application answered to "status"; nothing when it did not. Called once, when all else
/// has been looked at: the wait for an answer can so run beside the checks.
using AppStatus = std::function<std::optional<std::string>()>;

/// The findings in a fixed order: application, screen recording, injectors, settings and library,
/// devices, frame files; then hints. With `removeStale` the frame files of this user whose writer
/// is gone are removed.
std::vector<Check> run(const CameraControl& control, const AppStatus& appStatus, bool removeStale,
                       const Surroundings& surroundings = Surroundings::machine());

}  // namespace lenslark::Doctor
