#include "commands/SourceCommand.h"

#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "commands/CameraFlag.h"
#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "commands/InterruptibleImport.h"
#include "commands/Output.h"
#include "commands/SharedControl.h"

namespace lenslark::SourceCommand {
namespace {

using nlohmann::json;

/// The flags that every sub-command takes.
struct Target {
  std::optional<std::string> device;
  std::optional<CameraPosition> camera;
};

Target target(const Arguments& arguments) {
  const Target target{arguments.value("--device"), cameraFlag(arguments)};
  if (target.camera && !target.device) throw UsageError("--camera needs --device");
  return target;
}

void reset(const Arguments& arguments, const Target& target) {
  const bool all = arguments.contains("--all");
  sharedControl().reset(target.device, target.camera, all);
  Output::printLine(
      all ? "All camera settings cleared: every camera sees the desktop under its window."
          : "Cleared; the camera falls back to the next scope.");
}

void getGlobal(const CameraControl& control, bool asJSON) {
  const Assignment global = control.store().config().global();
  if (asJSON) {
    Output::printJSON(control.describe(global));
  } else {
    Output::printLine("global default → " + control.summary(global));
  }
}

void get(const Arguments& arguments, const Target& target) {
  const CameraControl control = sharedControl();
  const bool asJSON = arguments.contains("--json");
  if (!target.device) return getGlobal(control, asJSON);

  const std::vector<DeviceKey> keys = control.devices(*target.device);
  const ConfigFile config = control.store().config();
  const auto media = control.mediaNames();
  DeviceNames devices(control);
  json described = json::array();
  for (const DeviceKey& key : keys) {
    const auto cameras = target.camera ? std::vector{*target.camera} : key.cameras();
    for (const CameraPosition camera : cameras) {
      const ResolvedAssignment resolved = CameraDescription::resolve(config, key, camera);
      if (asJSON) {
        json entry = CameraDescription::describe(resolved, camera, media);
        entry["deviceKey"] = key.description();
        described.push_back(std::move(entry));
      } else {
        Output::printLine(devices.name(key) + " " + std::string(rawValue(camera)) + " → " +
                          CameraDescription::summary(resolved.assignment, media) + "  (" +
                          std::string(resolved.inheritedFrom) + ")");
      }
    }
  }
  if (asJSON) Output::printJSON(described);
}

void readOverlay(const Arguments& arguments, CameraControl::SetRequest& request) {
  request.overlayPath = arguments.value("--overlay");
  if (const auto text = arguments.value("--anchor")) {
    const auto anchor = parseAnchorLoosely(*text);
    if (!anchor) {
      throw UsageError(
          "--anchor: top-left, top, top-right, left, center, right, bottom-left, bottom, "
          "bottom-right");
    }
    request.anchor = *anchor;
  }
  request.scale = arguments.doubleAfter("--scale").value_or(request.scale);
  request.opacity = arguments.doubleAfter("--opacity").value_or(request.opacity);
  request.x = arguments.doubleAfter("--x");
  request.y = arguments.doubleAfter("--y");
}

CameraControl::SetRequest setRequest(const Arguments& arguments, const Target& target) {
  std::vector<std::string> words = arguments.positional(2);
  if (words.empty()) {
    throw UsageError("usage: lenslark source set <desktop|image FILE|video FILE|…>");
  }
  CameraControl::SetRequest request{.kind = words.front()};
  request.paths.assign(words.begin() + 1, words.end());
  request.device = target.device;
  request.camera = target.camera;
  request.loop = !arguments.contains("--once");
  request.interval = arguments.doubleAfter("--interval").value_or(request.interval);
  const std::string kind = Text::lowercase(request.kind);
  if (kind == "window" && !request.paths.empty()) {
    request.windowMatch = Text::join(request.paths, " ");
  }
  if (kind == "display" && !request.paths.empty()) {
    request.displayIndex = Text::parseInteger(request.paths.front());
  }
  readOverlay(arguments, request);
  return request;
}

std::string scopeName(const Scope& scope, DeviceNames& devices) {
  const auto key = scope.device();
  if (!key) return "global default";
  const auto camera = scope.camera();
  return devices.name(*key) + (camera ? " " + std::string(rawValue(*camera)) : "");
}

void set(const Arguments& arguments, const Target& target) {
  const CameraControl control = sharedControl();
  const auto request = setRequest(arguments, target);
  const auto written =
      importing([&](const auto& progress) { return control.set(request, progress); });

  const auto media = control.mediaNames();
  if (arguments.contains("--json")) {
    json described = json::array();
    for (const Assignment& assignment : written) {
      described.push_back(CameraDescription::describe(assignment, media));
    }
    return Output::printJSON(described);
  }
  DeviceNames devices(control);
  for (const Assignment& assignment : written) {
    Output::printLine(scopeName(assignment.scope, devices) + " → " +
                      CameraDescription::summary(assignment, media));
  }
}

}  // namespace

void run(const Arguments& arguments) {
  const Target where = target(arguments);
  const std::string_view verb = arguments.at(1);
  if (verb == "set") return set(arguments, where);
  if (verb == "get") return get(arguments, where);
  if (verb == "reset") return reset(arguments, where);
  HelpText::print();
}

}  // namespace lenslark::SourceCommand
