#include "config/ConfigJson.h"

#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "base/Json.h"
#include "base/Overloaded.h"

namespace lenslark::ConfigJson {
namespace {

using nlohmann::json;

/// JSON has no other numbers than finite ones: any other would be written as null.
json finite(const char* key, double value) {
  if (!std::isfinite(value)) throw JsonError(fmt::format("\"{}\" is not a finite number", key));
  return Json::number(value);
}

/// The word under "kind", empty when it is none: kinds that are not known are not errors, so that
/// a newer file never makes an older reader fail.
std::string kindOf(const json& object) {
  const json& kind = Json::expect(object, "kind");
  return kind.is_string() ? kind.get<std::string>() : std::string();
}

DeviceKey expectDeviceKey(const json& object) {
  return decodeDeviceKey(Json::expect(object, "deviceKey"));
}

CameraPosition expectCamera(const json& object) {
  const std::string word = Json::expectString(object, "camera");
  const auto camera = parseCameraPosition(word);
  if (!camera) throw JsonError("bad camera " + word);
  return *camera;
}

const json& expectArray(const json& object, const char* key) {
  const json& member = Json::expect(object, key);
  if (!member.is_array()) throw JsonError(fmt::format("\"{}\" is not a list", key));
  return member;
}

std::vector<std::string> expectStrings(const json& object, const char* key) {
  std::vector<std::string> strings;
  for (const json& item : expectArray(object, key)) {
    if (!item.is_string()) throw JsonError(fmt::format("\"{}\" holds more than texts", key));
    strings.push_back(item.get<std::string>());
  }
  return strings;
}

std::optional<double> findDouble(const json& object, const char* key) {
  if (Json::find(object, key) == nullptr) return std::nullopt;
  return Json::expectDouble(object, key);
}

json encodeSettings(const Settings& settings) {
  return {{"fill", settings.fill},
          {"fps", settings.fps},
          {"autoInjectSimulators", settings.autoInjectSimulators}};
}

Settings decodeSettings(const json& object) {
  return {.fill = Json::expectBool(object, "fill"),
          .fps = Json::expectInt(object, "fps"),
          .autoInjectSimulators = Json::expectBool(object, "autoInjectSimulators")};
}

json encodeKnownDevice(const KnownDevice& known) {
  return {{"deviceKey", known.key.description()},
          {"name", known.name},
          {"lastSeen", Json::formatDate(known.lastSeen)}};
}

KnownDevice decodeKnownDevice(const json& object) {
  return {.key = expectDeviceKey(object),
          .name = Json::expectString(object, "name"),
          .lastSeen = Json::expectDate(object, "lastSeen")};
}

ConfigFile decodeConfig(const json& root) {
  ConfigFile config;
  config.schemaVersion = Json::expectInt(root, "schemaVersion");
  config.settings = decodeSettings(Json::expect(root, "settings"));
  for (const json& item : expectArray(root, "assignments")) {
    config.assignments.push_back(decodeAssignment(item));
  }
  for (const json& item : expectArray(root, "knownDevices")) {
    config.knownDevices.push_back(decodeKnownDevice(item));
  }
  return config;
}

}  // namespace

json encode(const Scope& scope) {
  json object = {{"kind", scope.kindName()}};
  if (const auto device = scope.device()) object["deviceKey"] = device->description();
  if (const auto camera = scope.camera()) object["camera"] = rawValue(*camera);
  return object;
}

Scope decodeScope(const json& object) {
  const std::string kind = kindOf(object);
  if (kind == "device") return Scope::device(expectDeviceKey(object));
  if (kind == "camera") return Scope::camera(expectDeviceKey(object), expectCamera(object));
  return Scope::global();
}

json encode(const SourceSpec& source) {
  json object = {{"kind", source.kindName()}};
  const Overloaded payload{
      [](const SourceSpec::Desktop&) {},
      [](const SourceSpec::Pattern&) {},
      [&](const SourceSpec::Display& display) { object["displayIndex"] = display.index; },
      [&](const SourceSpec::Window& window) { object["windowMatch"] = window.match; },
      [&](const SourceSpec::Image& image) { object["mediaId"] = image.mediaId; },
      [&](const SourceSpec::Video& video) {
        object["mediaId"] = video.mediaId;
        object["loop"] = video.loop;
      },
      [&](const SourceSpec::Slideshow& slideshow) {
        object["mediaIds"] = slideshow.mediaIds;
        object["intervalSec"] = finite("intervalSec", slideshow.intervalSec);
      }};
  std::visit(payload, source.value);
  return object;
}

SourceSpec decodeSource(const json& object) {
  const std::string kind = kindOf(object);
  if (kind == "display") {
    const bool given = Json::find(object, "displayIndex") != nullptr;
    return {SourceSpec::Display{given ? Json::expectInt(object, "displayIndex") : 0}};
  }
  if (kind == "window") return {SourceSpec::Window{Json::expectString(object, "windowMatch")}};
  if (kind == "image") return {SourceSpec::Image{Json::expectString(object, "mediaId")}};
  if (kind == "video") {
    const bool given = Json::find(object, "loop") != nullptr;
    return {SourceSpec::Video{Json::expectString(object, "mediaId"),
                              given ? Json::expectBool(object, "loop") : true}};
  }
  if (kind == "slideshow") {
    return {SourceSpec::Slideshow{
        expectStrings(object, "mediaIds"),
        findDouble(object, "intervalSec").value_or(SourceSpec::Slideshow::defaultIntervalSec)}};
  }
  if (kind == "pattern") return {SourceSpec::Pattern{}};
  return {SourceSpec::Desktop{}};
}

json encode(const OverlaySpec& overlay) {
  json object = {{"mediaId", overlay.media},
                 {"anchor", rawValue(overlay.anchor)},
                 {"scale", finite("scale", overlay.scale)},
                 {"opacity", finite("opacity", overlay.opacity)}};
  if (overlay.x) object["x"] = finite("x", *overlay.x);
  if (overlay.y) object["y"] = finite("y", *overlay.y);
  return object;
}

OverlaySpec decodeOverlay(const json& object) {
  const std::string word = Json::expectString(object, "anchor");
  const auto anchor = parseAnchor(word);
  if (!anchor) throw JsonError("bad anchor " + word);
  return {.media = Json::expectString(object, "mediaId"),
          .anchor = *anchor,
          .scale = Json::expectDouble(object, "scale"),
          .opacity = Json::expectDouble(object, "opacity"),
          .x = findDouble(object, "x"),
          .y = findDouble(object, "y")};
}

json encode(const Assignment& assignment) {
  json object = {{"scope", encode(assignment.scope)}, {"source", encode(assignment.source)}};
  if (assignment.overlay) object["overlay"] = encode(*assignment.overlay);
  if (assignment.updatedAt) object["updatedAt"] = Json::formatDate(*assignment.updatedAt);
  return object;
}

Assignment decodeAssignment(const json& object) {
  Assignment assignment{.scope = decodeScope(Json::expect(object, "scope")),
                        .source = decodeSource(Json::expect(object, "source")),
                        .overlay = {},
                        .updatedAt = {}};
  if (const json* overlay = Json::find(object, "overlay")) {
    assignment.overlay = decodeOverlay(*overlay);
  }
  if (Json::find(object, "updatedAt") != nullptr) {
    assignment.updatedAt = Json::expectDate(object, "updatedAt");
  }
  return assignment;
}

DeviceKey decodeDeviceKey(const json& value) {
  if (!value.is_string()) throw JsonError("\"deviceKey\" is not text");
  const auto text = value.get<std::string>();
  auto key = DeviceKey::parse(text);
  if (!key) throw JsonError("bad device key " + text);
  return *std::move(key);
}

json encode(const ConfigFile& config) {
  json assignments = json::array();
  for (const Assignment& assignment : config.assignments) assignments.push_back(encode(assignment));
  json knownDevices = json::array();
  for (const KnownDevice& known : config.knownDevices) {
    knownDevices.push_back(encodeKnownDevice(known));
  }
  return {{"schemaVersion", config.schemaVersion},
          {"settings", encodeSettings(config.settings)},
          {"assignments", std::move(assignments)},
          {"knownDevices", std::move(knownDevices)}};
}

std::string write(const ConfigFile& config) { return Json::pretty(encode(config)); }

ConfigFile read(std::string_view text) { return decodeConfig(Json::parse(text)); }

}  // namespace lenslark::ConfigJson
