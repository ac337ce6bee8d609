#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/ConfigFile.h"
#include "devices/ConnectedDevice.h"
#include "media/MediaLibrary.h"

namespace lenslark {

/// What governs a camera, and which scope that comes from.
struct ResolvedAssignment {
  Assignment assignment;
  /// "camera", "device", "global", or "default" where nothing is stored.
  std::string_view inheritedFrom;
};

/// What cameras show, in words and as JSON for people and agents. **Threads**: any, pure.
namespace CameraDescription {

/// The name of a media item, or nothing when the library has none of that id.
using MediaNames = std::function<std::optional<std::string>(std::string_view id)>;

ResolvedAssignment resolve(const ConfigFile& config, const DeviceKey& device,
                           CameraPosition camera);

/// "kind" and what belongs to that kind.
nlohmann::json describe(const SourceSpec& source, const MediaNames& names);
/// The source's description with "scope", "deviceKey", "camera" and "overlay" where they apply.
nlohmann::json describe(const Assignment& assignment, const MediaNames& names);
/// As the assignment's, with "camera" and "inheritedFrom".
nlohmann::json describe(const ResolvedAssignment& resolved, CameraPosition camera,
                        const MediaNames& names);

/// One line of text: "video clip.mov (once) + overlay logo.png".
std::string summary(const Assignment& assignment, const MediaNames& names);

nlohmann::json mediaJSON(const MediaItem& item);

/// The connected devices with their cameras, then the remembered ones that are not running.
nlohmann::json devicesJSON(const std::vector<ConnectedDevice>& connected, const ConfigFile& config,
                           const MediaNames& names);

}  // namespace CameraDescription
}  // namespace lenslark
