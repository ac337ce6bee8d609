#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "config/ConfigFile.h"
#include "devices/ConnectedDevice.h"
#include "feeds/DeviceStatus.h"
#include "feeds/FeedOutput.h"
#include "feeds/FeedOverrides.h"
#include "feeds/SourceKey.h"

/// Which feed files there should be, and what each shows. Pure.
namespace lenslark {

/// One feed file that should exist.
struct WantedFeed {
  /// No written frame's side is longer.
  static constexpr int maxSide = 2048;

  std::string path;
  LLCamera camera = LLCameraDevice;
  std::optional<DeviceKey> device;  ///< Nothing for the global feed.
  SourceRequest source;
  FeedOutput::Style style;
  LLSceneMode sceneMode = LLSceneModeFit;
  /// The file of the style's overlay; nothing without one, and when it is not in the library.
  std::optional<std::filesystem::path> overlayFile;
};

/// What the decision is made from.
struct FeedSituation {
  ConfigFile config;
  FeedOverrides overrides;
  std::vector<ConnectedDevice> devices;
  MediaFiles media;
  std::string mediaUnread;  ///< Why the library could not be looked into; empty when it could.
  std::string globalPath;
};

/// The wanted feeds: the devices' in their order (one for an emulator and for a simulator whose
/// cameras show the same, else one for each camera), then the global one. Each path occurs once.
std::vector<WantedFeed> wantedFeeds(const FeedSituation& situation);

/// The files that readers of the connected devices look for as well, and that are not wanted.
std::set<std::string> unwantedPaths(const FeedSituation& situation,
                                    const std::vector<WantedFeed>& wanted);

/// What each device's cameras show, and by which of the `open` files.
std::vector<DeviceStatus> deviceStatuses(const FeedSituation& situation,
                                         const std::set<std::string>& open);

}  // namespace lenslark
