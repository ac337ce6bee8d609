#include "control/CameraDescription.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Json.h"
#include "base/Overloaded.h"

namespace lenslark::CameraDescription {
namespace {

using nlohmann::json;

void addMedia(json& description, const std::string& id, const MediaNames& names) {
  description["mediaId"] = id;
  if (auto name = names(id)) description["name"] = *std::move(name);
}

json describeOverlay(const OverlaySpec& overlay, const MediaNames& names) {
  json description = {{"anchor", rawValue(overlay.anchor)},
                      {"scale", Json::number(overlay.scale)},
                      {"opacity", Json::number(overlay.opacity)}};
  addMedia(description, overlay.media, names);
  if (overlay.x) description["x"] = Json::number(*overlay.x);
  if (overlay.y) description["y"] = Json::number(*overlay.y);
  return description;
}

std::string summary(const SourceSpec& source, const MediaNames& names) {
  const auto name = [&](const std::string& id) { return names(id).value_or(id); };
  return std::visit(
      Overloaded{
          [](const SourceSpec::Desktop&) -> std::string { return "desktop under the window"; },
          [](const SourceSpec::Display& it) { return fmt::format("display {}", it.index); },
          [](const SourceSpec::Window& it) { return fmt::format("window \"{}\"", it.match); },
          [&](const SourceSpec::Image& it) { return "image " + name(it.mediaId); },
          [&](const SourceSpec::Video& it) {
            return "video " + name(it.mediaId) + (it.loop ? "" : " (once)");
          },
          [](const SourceSpec::Slideshow& it) {
            return fmt::format("slideshow of {} images every {}s", it.mediaIds.size(),
                               Json::compact(Json::number(it.intervalSec)));
          },
          [](const SourceSpec::Pattern&) -> std::string { return "test pattern"; },
      },
      source.value);
}

std::string_view platformName(Platform platform) noexcept {
  return platform == Platform::ios ? "iOS" : "Android";
}

}  // namespace

ResolvedAssignment resolve(const ConfigFile& config, const DeviceKey& device,
                           CameraPosition camera) {
  Assignment assignment = config.resolve(device, camera);
  const bool stored = config.assignment(assignment.scope) != nullptr;
  const std::string_view from = stored ? assignment.scope.kindName() : "default";
  return {std::move(assignment), from};
}

json describe(const SourceSpec& source, const MediaNames& names) {
  json description = {{"kind", source.kindName()}};
  std::visit(Overloaded{
                 [](const SourceSpec::Desktop&) {},
                 [&](const SourceSpec::Display& it) { description["displayIndex"] = it.index; },
                 [&](const SourceSpec::Window& it) { description["windowMatch"] = it.match; },
                 [&](const SourceSpec::Image& it) { addMedia(description, it.mediaId, names); },
                 [&](const SourceSpec::Video& it) {
                   addMedia(description, it.mediaId, names);
                   description["loop"] = it.loop;
                 },
                 [&](const SourceSpec::Slideshow& it) {
                   description["mediaIds"] = it.mediaIds;
                   description["intervalSec"] = Json::number(it.intervalSec);
                 },
                 [](const SourceSpec::Pattern&) {},
             },
             source.value);
  return description;
}

json describe(const Assignment& assignment, const MediaNames& names) {
  json description = describe(assignment.source, names);
  description["scope"] = assignment.scope.kindName();
  if (const auto key = assignment.scope.device()) description["deviceKey"] = key->description();
  if (const auto camera = assignment.scope.camera()) description["camera"] = rawValue(*camera);
  if (assignment.overlay) description["overlay"] = describeOverlay(*assignment.overlay, names);
  return description;
}

json describe(const ResolvedAssignment& resolved, CameraPosition camera, const MediaNames& names) {
  json description = describe(resolved.assignment, names);
  description["camera"] = rawValue(camera);
  description["inheritedFrom"] = resolved.inheritedFrom;
  return description;
}

std::string summary(const Assignment& assignment, const MediaNames& names) {
  std::string text = summary(assignment.source, names);
  if (assignment.overlay) {
    const std::string& media = assignment.overlay->media;
    text += " + overlay " + names(media).value_or(media);
  }
  return text;
}

json mediaJSON(const MediaItem& item) {
  json description = {{"id", item.id},       {"name", item.name},     {"kind", rawValue(item.kind)},
                      {"width", item.width}, {"height", item.height}, {"pinned", item.pinned}};
  if (item.duration) description["durationSec"] = Json::number(*item.duration);
  return description;
}

json devicesJSON(const std::vector<ConnectedDevice>& connected, const ConfigFile& config,
                 const MediaNames& names) {
  json devices = json::array();
  for (const ConnectedDevice& device : connected) {
    json cameras = json::array();
    for (const CameraPosition camera : device.key.cameras()) {
      cameras.push_back(describe(resolve(config, device.key, camera), camera, names));
    }
    devices.push_back({{"key", device.key.description()},
                       {"name", device.name},
                       {"platform", device.platform()},
                       {"connected", true},
                       {"cameras", std::move(cameras)}});
  }
  for (const KnownDevice& known : config.knownDevices) {
    if (std::ranges::find(connected, known.key, &ConnectedDevice::key) != connected.end()) continue;
    devices.push_back({{"key", known.key.description()},
                       {"name", known.name},
                       {"platform", platformName(known.key.platform)},
                       {"connected", false}});
  }
  return devices;
}

}  // namespace lenslark::CameraDescription
