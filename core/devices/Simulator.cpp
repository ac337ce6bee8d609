#include "devices/Simulator.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>
#include <system_error>

#include "base/Json.h"
#include "base/Text.h"
#include "devices/CommandError.h"
#include "devices/Injectors.h"
#include "devices/Shell.h"

namespace lenslark::Simulator {
namespace {

constexpr const char* insertedLibraries = "DYLD_INSERT_LIBRARIES";

Shell::Result simctl(std::vector<std::string> arguments,
                     const Shell::Environment& environment = {}) {
  arguments.insert(arguments.begin(), "simctl");
  return Shell::run("/usr/bin/xcrun", arguments, environment);
}

/// simctl's own words; ours where it ended without any.
std::string failure(const Shell::Result& result) {
  const std::string_view said = Text::trim(result.errors);
  if (!said.empty()) return std::string(said);
  constexpr int killed = 128;
  return result.status > killed
             ? fmt::format("xcrun simctl was killed by signal {}.", result.status - killed)
             : fmt::format("xcrun simctl failed with status {}.", result.status);
}

Shell::Result successful(Shell::Result result) {
  if (result.status != 0) throw CommandError(failure(result));
  return result;
}

/// "iOS-17-2" of "com.apple.CoreSimulator.SimRuntime.iOS-17-2".
std::string runtimeName(const std::string& identifier) {
  const auto components = Text::split(identifier, '.');
  return components.empty() ? identifier : std::string(components.back());
}

void appendDevices(std::vector<Device>& devices, const std::string& runtimeIdentifier,
                   const nlohmann::json& entries) {
  const std::string runtime = runtimeName(runtimeIdentifier);
  for (const nlohmann::json& entry : entries) {
    const auto udid = entry.find("udid");
    const auto name = entry.find("name");
    if (udid == entry.end() || !udid->is_string()) continue;
    if (name == entry.end() || !name->is_string()) continue;
    devices.push_back({udid->get<std::string>(), name->get<std::string>(), runtime});
  }
}

/// An object that maps texts to arrays of objects.
bool isDeviceTable(const nlohmann::json& table) {
  if (!table.is_object()) return false;
  for (const nlohmann::json& entries : table) {
    if (!entries.is_array()) return false;
    for (const nlohmann::json& entry : entries) {
      if (!entry.is_object()) return false;
    }
  }
  return true;
}

}  // namespace

std::vector<Device> parseDeviceList(std::string_view text) {
  const nlohmann::json json = Json::parse(text);
  const auto table = json.is_object() ? json.find("devices") : json.end();
  if (table == json.end() || !isDeviceTable(*table)) return {};
  std::vector<Device> devices;
  for (const auto& [runtime, entries] : table->items()) appendDevices(devices, runtime, entries);
  return devices;
}

std::vector<Device> bootedDevices() {
  const Shell::Result result = simctl({"list", "devices", "booted", "-j"});
  if (result.status != 0) return {};
  return parseDeviceList(result.output);
}

std::string injectorPath() {
  return Injectors::path("LenslarkInject.dylib", "LENSLARK_INJECT_DYLIB");
}

std::string launch(const std::string& bundleID, const std::string& udid,
                   const std::vector<std::string>& extraArguments) {
  // simctl takes the prefix off and hands the variable to the app.
  const Shell::Environment environment{
      {std::string("SIMCTL_CHILD_") + insertedLibraries, injectorPath()}};
  std::vector<std::string> arguments{"launch", "--terminate-running-process", udid, bundleID};
  arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
  return std::string(Text::trim(successful(simctl(arguments, environment)).output));
}

void enableGlobally(const std::string& udid) {
  successful(simctl({"spawn", udid, "launchctl", "setenv", insertedLibraries, injectorPath()}));
}

void disableGlobally(const std::string& udid) {
  successful(simctl({"spawn", udid, "launchctl", "unsetenv", insertedLibraries}));
}

bool isEnabled(const std::string& udid) {
  try {
    const Shell::Result result = simctl({"spawn", udid, "launchctl", "getenv", insertedLibraries});
    return result.output.find("LenslarkInject") != std::string::npos;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace lenslark::Simulator
