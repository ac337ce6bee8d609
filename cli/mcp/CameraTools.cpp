#include "mcp/CameraTools.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>

#include "base/Base64.h"
#include "base/Error.h"
#include "base/Json.h"
#include "codecs/Modules.h"
#include "config/Lenslark.h"
#include "mcp/ArgumentCheck.h"
#include "mcp/ToolTable.h"

namespace lenslark {
namespace {

using nlohmann::json;

/// Longer sides of snapshots, pixels: enough to read a scan's text, small enough for a model.
constexpr int snapshotSide = 1024;

json textItem(std::string text) { return {{"type", "text"}, {"text", std::move(text)}}; }

std::string textContent(std::string text) {
  return Json::compact(json::array({textItem(std::move(text))}));
}

std::optional<std::string> optionalString(const json& arguments, const char* key) {
  const auto member = arguments.find(key);
  if (member == arguments.end()) return std::nullopt;
  return member->get<std::string>();
}

std::optional<CameraPosition> camera(const json& arguments) {
  const auto word = optionalString(arguments, "camera");
  return word ? parseCameraPosition(*word) : std::nullopt;
}

std::optional<double> optionalDouble(const json& arguments, const char* key) {
  const auto member = arguments.find(key);
  if (member == arguments.end()) return std::nullopt;
  return member->get<double>();
}

std::optional<std::int64_t> displayIndex(const json& arguments) {
  if (!arguments.contains("displayIndex")) return std::nullopt;
  try {
    return Json::expectInt(arguments, "displayIndex");
  } catch (const JsonError&) {
    using Limits = std::numeric_limits<std::int64_t>;
    throw ControlError::badArgs(
        fmt::format("displayIndex is {}; it must be a whole number from {} to {}",
                    Json::compact(arguments.at("displayIndex")), Limits::min(), Limits::max()));
  }
}

bool isListed(const json& word, const json& schema) {
  const json& choices = schema.at("enum");
  return std::ranges::find(choices, word) != choices.end();
}

/// A word that no list has gets the same answer as on the command line. Of what is missing beside
/// it, the check of all arguments tells first.
void refuseUnknownWords(const json& arguments) {
  if (!arguments.is_object()) return;
  const json& properties = ToolTable::schema("set_source").at("properties");
  const auto kind = arguments.find("kind");
  if (kind == arguments.end()) return;
  if (kind->is_string() && !isListed(*kind, properties.at("kind"))) {
    throw ControlError::unknownSource(kind->get<std::string>());
  }
  const auto overlay = arguments.find("overlay");
  if (overlay == arguments.end() || !overlay->is_object() || !overlay->contains("path")) return;
  const auto anchor = overlay->find("anchor");
  if (anchor == overlay->end() || !anchor->is_string()) return;
  if (!isListed(*anchor, properties.at("overlay").at("properties").at("anchor"))) {
    throw ControlError::badArgs("unknown anchor " + anchor->get<std::string>());
  }
}

void readOverlay(const json& overlay, CameraControl::SetRequest& request) {
  request.overlayPath = overlay.at("path").get<std::string>();
  if (const auto word = optionalString(overlay, "anchor")) {
    request.anchor = parseAnchorLoosely(*word).value_or(request.anchor);
  }
  request.scale = optionalDouble(overlay, "scale").value_or(request.scale);
  request.opacity = optionalDouble(overlay, "opacity").value_or(request.opacity);
  request.x = optionalDouble(overlay, "x");
  request.y = optionalDouble(overlay, "y");
}

CameraControl::SetRequest setRequest(const json& arguments) {
  CameraControl::SetRequest request{.kind = arguments.at("kind").get<std::string>()};
  if (auto path = optionalString(arguments, "path")) request.paths.push_back(*std::move(path));
  if (const auto paths = arguments.find("paths"); paths != arguments.end()) {
    for (const json& path : *paths) request.paths.push_back(path.get<std::string>());
  }
  request.loop = arguments.value("loop", request.loop);
  request.interval = optionalDouble(arguments, "interval").value_or(request.interval);
  request.displayIndex = displayIndex(arguments);
  request.windowMatch = optionalString(arguments, "window");
  request.device = optionalString(arguments, "device");
  request.camera = camera(arguments);
  if (const auto overlay = arguments.find("overlay"); overlay != arguments.end()) {
    readOverlay(*overlay, request);
  }
  return request;
}

std::vector<std::byte> encodedPng(const PixelBuffer& image) {
  ImageCodec& codec = Modules::imageCodec();
  try {
    return codec.encodePng(image.view());
  } catch (const Error&) {
    throw Error("could not encode the frame");
  }
}

/// As text at once: Base64 needs no escapes, and to look for some takes longer than to encode it.
std::string imageItem(const PixelBuffer& image) {
  std::string item = R"({"data":")";
  Base64::append(encodedPng(image), item);
  item += R"(","mimeType":"image/png","type":"image"})";
  return item;
}

/// Hosts start servers with few variables: without a home, what is to be written has no place.
std::string missingVariable(std::string_view message) {
  for (const char* name : {"HOME", "LENSLARK_CONFIG_DIR"}) {
    if (const char* value = std::getenv(name); value != nullptr && *value != '\0') return "";
  }
  if (message.find(Lenslark::supportDirectory().string()) == message.npos) return "";
  return ". HOME is not set: add it, or LENSLARK_CONFIG_DIR, to the server's environment";
}

std::string failure(const std::exception& error) {
  const auto* own = dynamic_cast<const Error*>(&error);
  const std::string code = own != nullptr ? own->code() : "internal";
  const std::string message = error.what();
  return R"({"content":)" + textContent(code + ": " + message + missingVariable(message)) +
         R"(,"isError":true})";
}

}  // namespace

std::string CameraTools::call(const std::string& tool, const json& arguments) const {
  try {
    return R"({"content":)" + content(tool, arguments) + '}';
  } catch (const std::exception& error) {
    return failure(error);
  }
}

std::string CameraTools::content(const std::string& tool, const json& arguments) const {
  struct Entry {
    std::string_view name;
    std::string (CameraTools::*run)(const json&) const;
  };
  static constexpr std::array entries{
      Entry{"list_devices", &CameraTools::listDevices},
      Entry{"set_source", &CameraTools::setSource},
      Entry{"get_source", &CameraTools::getSource},
      Entry{"reset_source", &CameraTools::resetSource},
      Entry{"add_media", &CameraTools::addMedia},
      Entry{"snapshot_feed", &CameraTools::snapshotFeed},
  };
  const auto entry = std::ranges::find(entries, tool, &Entry::name);
  if (entry == entries.end()) throw ControlError::badArgs("unknown tool " + tool);
  if (tool == "set_source") refuseUnknownWords(arguments);
  ArgumentCheck::check(arguments, ToolTable::schema(tool));
  return (this->*entry->run)(arguments);
}

std::string CameraTools::listDevices(const json&) const {
  return textContent(Json::pretty(control_.devicesJSON()));
}

std::string CameraTools::setSource(const json& arguments) const {
  const auto media = control_.mediaNames();
  std::string text;
  for (const Assignment& assignment : control_.set(setRequest(arguments))) {
    const bool global = !assignment.scope.device();
    text += global ? "global default" : assignment.scope.description();
    text += " → " + CameraDescription::summary(assignment, media) + "\n";
  }
  if (text.empty()) text = "\n";
  return textContent(text + "Running camera apps pick this up within a second.");
}

std::string CameraTools::getSource(const json& arguments) const {
  const auto wanted = camera(arguments);
  const auto device = optionalString(arguments, "device");
  const auto media = control_.mediaNames();
  if (!device) {
    if (wanted) throw ControlError::badArgs("--camera needs --device");
    const ConfigFile config = control_.store().config();
    json described = CameraDescription::describe(config.global(), media);
    const bool stored = config.assignment(Scope::global()) != nullptr;
    described["inheritedFrom"] = stored ? "global" : "default";
    return textContent(Json::pretty(described));
  }
  const CameraPosition position = wanted.value_or(CameraPosition::back);
  const std::vector<DeviceKey> keys = control_.devices(*device);
  const ConfigFile config = control_.store().config();
  json described = json::array();
  for (const DeviceKey& key : keys) {
    json entry = CameraDescription::describe(CameraDescription::resolve(config, key, position),
                                             position, media);
    entry["deviceKey"] = key.description();
    described.push_back(std::move(entry));
  }
  return textContent(Json::pretty(described));
}

std::string CameraTools::resetSource(const json& arguments) const {
  control_.reset(optionalString(arguments, "device"), camera(arguments),
                 arguments.value("all", false));
  return textContent(
      "Reset. Cameras fall back to the next scope (camera › device › global › desktop).");
}

std::string CameraTools::addMedia(const json& arguments) const {
  const json& paths = arguments.at("paths");
  if (paths.empty()) throw ControlError::badArgs("paths is required");
  const bool pin = arguments.value("pin", false);
  json described = json::array();
  for (const json& path : paths) {
    MediaItem item = control_.importMedia(path.get<std::string>());
    if (pin) {
      control_.media().setPinned(item.id, true);
      item.pinned = true;
    }
    described.push_back(CameraDescription::mediaJSON(item));
  }
  return textContent(Json::pretty(described));
}

std::string CameraTools::snapshotFeed(const json& arguments) const {
  const CameraPosition position = camera(arguments).value_or(CameraPosition::back);
  const auto snapshot =
      control_.snapshot(arguments.at("device").get<std::string>(), position, snapshotSide);
  const json caption = textItem(
      fmt::format("{} {} camera is fed right now", snapshot.deviceName, rawValue(position)));
  return '[' + imageItem(*snapshot.image) + ',' + Json::compact(caption) + ']';
}

}  // namespace lenslark
