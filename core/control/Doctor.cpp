#include "control/Doctor.h"

#include <fmt/core.h>
#include <sys/xattr.h>

#include <algorithm>
#include <deque>
#include <future>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "base/BrokenFile.h"
#include "config/Lenslark.h"
#include "config/SavedConfig.h"
#include "control/FeedFindings.h"
#include "control/Hints.h"
#include "devices/CommandError.h"
#include "devices/Simulator.h"
#include "feeds/FeedReader.h"
#include "media/MediaIndex.h"

namespace lenslark::Doctor {
namespace {

using Checks = std::vector<Check>;

void append(Checks& checks, Checks more) { std::ranges::move(more, std::back_inserter(checks)); }

/// The findings of one group; one that says why there are none where it fails.
template <typename Group>
Checks guarded(const std::string& what, Group&& group) {
  try {
    return group();
  } catch (const std::exception& error) {
    return {Check{Level::warning, what + " could not be checked", {error.what()}, {}}};
  }
}

Check applicationCheck(const std::optional<RunningApplications::Application>& application) {
  if (application) {
    return {Level::ok,
            fmt::format("Lenslark.app running (pid {}), version {}", application->pid,
                        application->version),
            {},
            {}};
  }
  return {Level::warning,
          "Lenslark.app is not running",
          {"Cameras show the placeholder unless `lenslark serve` is running."},
          "open -a Lenslark (or run `lenslark serve`)"};
}

Checks screenRecordingChecks(const std::optional<std::string>& appStatus) {
  if (!appStatus || appStatus->find("screen=denied") == std::string::npos) return {};
  return {Check{Level::warning,
                "Lenslark.app has no Screen Recording permission",
                {"Image, video and pattern cameras still work; the live desktop doesn't."},
                "System Settings › Privacy & Security › Screen & System Audio Recording › allow "
                "Lenslark, then Restart Lenslark"}};
}

bool hasAttribute(const std::string& path, const char* name) {
  return ::getxattr(path.c_str(), name, nullptr, 0) >= 0;
}

Check injectorCheck(const std::string& name, std::string (*find)()) {
  std::string path;
  try {
    path = find();
  } catch (const CommandError&) {
    return {
        Level::error, name + " missing", {}, "scripts/build-injector.sh, or reinstall Lenslark"};
  }
  // File systems of Linux hold the attributes that a user may set under "user.".
  const bool underUser = hasAttribute(path, "user.com.apple.quarantine");
  if (!underUser && !hasAttribute(path, "com.apple.quarantine")) {
    return {Level::ok, name + " present", {}, {}};
  }
  Check check{Level::error, name + " is quarantined", {}, {}};
  if (underUser) {
    check.details.push_back("on Linux: setfattr -x user.com.apple.quarantine \"" + path + "\"");
  }
  check.fix = "open Lenslark.app once, or: xattr -d com.apple.quarantine \"" + path + "\"";
  return check;
}

Checks injectorChecks() {
  return {injectorCheck("iOS injector", Simulator::injectorPath),
          injectorCheck("Android injector", AndroidEmulator::injectorPath)};
}

/// Nothing else tells that a slip in a hand edit has put the defaults in force.
Checks settingsProblems(const std::filesystem::path& file) {
  using Condition = SavedConfig::Condition;
  const SavedConfig saved = SavedConfig::read(file);
  if (saved.condition == Condition::good || saved.condition == Condition::missing) return {};
  return {{Level::warning,
           "The settings cannot be read",
           {saved.problem, "The defaults are in force."},
           "mend \"" + file.string() + "\", or move it away"}};
}

/// Nothing else tells why the media library only grows.
Checks settingsKeptAside(const std::filesystem::path& file) {
  std::vector<std::string> details = BrokenFile::copies(file.string());
  if (details.empty()) return {};
  details.emplace_back("Unused media are not removed while any such file is there.");
  return {{Level::warning, "Settings that could not be read are kept aside", std::move(details),
           "take what is still wanted from there into \"" + file.string() +
               "\", then delete every config.json.broken-* beside it"}};
}

Checks configurationChecks(const CameraControl& control) {
  const std::filesystem::path file = control.store().fileURL();
  std::error_code unknown;
  // Before the store reads it, which keeps a broken one aside.
  const bool exists = std::filesystem::exists(file, unknown);
  const ConfigFile config = control.store().config();
  Checks problems = settingsProblems(file);
  append(problems, settingsKeptAside(file));
  std::size_t items = 0;
  try {
    items = MediaIndex::read(control.media().directory() / "index.json").size();
  } catch (const std::exception& error) {
    problems.push_back(
        {Level::warning, "The media library's list cannot be read", {error.what()}, {}});
  }
  Checks checks{{Level::ok,
                 exists ? "Config: " + file.string() : "Config: defaults (no config.json yet)",
                 {fmt::format("schema {}, {} assignment(s), {} media item(s)", config.schemaVersion,
                              config.assignments.size(), items)},
                 {}}};
  append(checks, std::move(problems));
  return checks;
}

std::optional<double> heartbeatAge(const std::string& feed) {
  try {
    const auto info = FeedReader::info(feed);
    return info ? info->heartbeatAge : std::nullopt;
  } catch (const Error&) {
    return std::nullopt;  // the frame files' own finding
  }
}

/// The line that tells what a camera is being fed, and whether that is alive.
std::pair<std::string, bool> feedLine(const std::optional<std::string>& feed) {
  if (!feed) return {"  no feed (placeholder)", false};
  const std::string line = "  feed " + *feed + " heartbeat ";
  const auto age = heartbeatAge(*feed);
  if (!age) return {line + "never", false};
  return {line + fmt::format("{:.1f} s", *age), *age < FeedReader::liveHeartbeat};
}

/// Adds what a camera shows and what it is being fed.
void addCamera(Check& check, const ConnectedDevice& device, CameraPosition camera,
               const ConfigFile& config, const CameraDescription::MediaNames& names) {
  const auto resolved = CameraDescription::resolve(config, device.key, camera);
  check.details.push_back(fmt::format("{}: {} ({})", lenslark::rawValue(camera),
                                      CameraDescription::summary(resolved.assignment, names),
                                      resolved.inheritedFrom));
  auto [line, live] = feedLine(FeedReader::path(device, camera));
  check.details.push_back(std::move(line));
  if (!live && check.level == Level::ok) {
    check.level = Level::warning;
    check.fix = "turn Lenslark on";
  }
}

Check simulatorCheck(const std::string& title, const std::string& udid, bool enabled) {
  if (enabled) {
    return {Level::ok, title, {"DYLD_INSERT_LIBRARIES set: apps launched now get the camera"}, {}};
  }
  return {Level::warning,
          title,
          {"camera injector not enabled on this simulator"},
          "turn on Auto in the Lenslark menu, or `lenslark ios enable --udid " + udid +
              "`, then relaunch the app"};
}

Check emulatorCheck(const std::string& title, const std::string& avd, bool hasCamera) {
  if (hasCamera) return {Level::ok, title, {}, {}};
  return {Level::error,
          title,
          {"running WITHOUT the Lenslark camera (started outside Lenslark)"},
          "quit it, then `lenslark android launch " + avd + "`"};
}

/// Whether each simulator was set up with the injector. Every question to simctl takes a while: as
/// many are asked at once as descriptors and processes allow anywhere, or one after the other where
/// there are no threads for that.
std::vector<bool> injectorsEnabled(const std::vector<ConnectedDevice>& devices,
                                   const Surroundings& surroundings) {
  constexpr std::size_t atOnce = 16;
  constexpr auto asideIfThereIsAThread = std::launch::async | std::launch::deferred;
  std::deque<std::future<bool>> asked;
  std::vector<bool> enabled;
  const auto takeAnswer = [&] {
    enabled.push_back(asked.front().get());
    asked.pop_front();
  };
  for (const ConnectedDevice& device : devices) {
    if (!device.isIOS()) continue;
    if (asked.size() == atOnce) takeAnswer();
    asked.push_back(std::async(asideIfThereIsAThread, surroundings.injectorEnabled, device.key.id));
  }
  while (!asked.empty()) takeAnswer();
  return enabled;
}

/// Whether each device was started or set up with the injector.
std::vector<bool> injected(const std::vector<ConnectedDevice>& devices,
                           const Surroundings& surroundings) {
  const std::vector<bool> enabled = injectorsEnabled(devices, surroundings);
  const bool anyEmulator = enabled.size() < devices.size();
  const auto emulators =
      anyEmulator ? surroundings.emulators() : std::vector<AndroidEmulator::RunningEmulator>();
  const auto hasCamera = [&](const ConnectedDevice& device) {
    const auto* emulator = std::get_if<ConnectedDevice::Emulator>(&device.feed);
    return emulator != nullptr && std::ranges::any_of(emulators, [&](const auto& running) {
             return running.pid == emulator->pid && running.hasCamera;
           });
  };
  std::vector<bool> result;
  auto next = enabled.begin();
  for (const ConnectedDevice& device : devices) {
    result.push_back(device.isIOS() ? *next++ : hasCamera(device));
  }
  return result;
}

Checks deviceChecks(const CameraControl& control, const std::vector<ConnectedDevice>& devices,
                    const Surroundings& surroundings) {
  const ConfigFile config = control.store().config();
  const auto names = control.mediaNames();
  const auto withInjector = injected(devices, surroundings);
  Checks checks;
  for (std::size_t index = 0; index < devices.size(); ++index) {
    const ConnectedDevice& device = devices[index];
    const std::string title = device.name + " [" + device.key.description() + "]";
    Check check = device.isIOS() ? simulatorCheck(title, device.key.id, withInjector[index])
                                 : emulatorCheck(title, device.key.id, withInjector[index]);
    for (const CameraPosition camera : device.key.cameras()) {
      addCamera(check, device, camera, config, names);
    }
    checks.push_back(std::move(check));
  }
  return checks;
}

}  // namespace

std::string_view rawValue(Level level) noexcept {
  switch (level) {
    case Level::ok:
      return "ok";
    case Level::warning:
      return "warning";
    case Level::error:
      return "error";
    case Level::info:
      break;
  }
  return "info";
}

nlohmann::json json(const Check& check) {
  nlohmann::json value = {{"level", rawValue(check.level)}, {"title", check.title}};
  if (!check.details.empty()) value["details"] = check.details;
  if (check.fix) value["fix"] = *check.fix;
  return value;
}

Surroundings Surroundings::machine() {
  return {
      .application = [] { return RunningApplications::find(std::string(Lenslark::appBundleID)); },
      .injectorEnabled = Simulator::isEnabled,
      .emulators = AndroidEmulator::running,
      .feedDirectory = "/tmp"};
}

std::vector<Check> run(const CameraControl& control, const AppStatus& appStatus, bool removeStale,
                       const Surroundings& surroundings) {
  Checks rest = guarded("The injectors", injectorChecks);
  append(rest, guarded("The settings", [&] { return configurationChecks(control); }));
  std::vector<ConnectedDevice> devices;
  append(rest, guarded("The devices", [&] {
           devices = control.connectedDevices();
           return deviceChecks(control, devices, surroundings);
         }));
  append(rest, guarded("The frame files", [&] {
           return FeedFindings::checks(surroundings.feedDirectory, removeStale);
         }));
  append(rest, guarded("The surroundings", [&] { return Hints::checks(devices); }));

  Checks checks = guarded("The application",
                          [&] { return Checks{applicationCheck(surroundings.application())}; });
  append(checks, screenRecordingChecks(appStatus()));
  append(checks, std::move(rest));
  return checks;
}

}  // namespace lenslark::Doctor
