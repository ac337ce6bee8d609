#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "config/DeviceKey.h"

/// The system's well-known names, defaults and paths.
namespace lenslark::Lenslark {

inline constexpr std::string_view version = "1.1.0";
inline constexpr std::string_view appBundleID = "dev.lenslark.Lenslark";
/// The names under which the camera appears inside a device.
inline constexpr std::string_view virtualCameraName = "Lenslark Camera";
inline constexpr std::string_view virtualFrontCameraName = "Lenslark Camera (Front)";
inline constexpr int defaultWidth = 1280;
inline constexpr int defaultHeight = 720;
inline constexpr int defaultFPS = 30;

/// Holds `config.json` and the media library: $LENSLARK_CONFIG_DIR when it is set and not empty,
/// as it stands, else "Lenslark" in the user's application support directory.
std::filesystem::path supportDirectory();

/// The feed file where no device has one of its own: $LENSLARK_SHM when it is set, even empty,
/// else "/tmp/lenslark.shm".
std::string sharedFramePath();

/// The feed files of a device, or of one of its cameras. The readers inside devices compute them
/// on their own: the strings are exact.
std::string simulatorFeedPath(const std::string& udid, std::optional<CameraPosition> camera = {});
std::string emulatorFeedPath(pid_t pid, std::optional<CameraPosition> camera = {});

}  // namespace lenslark::Lenslark
