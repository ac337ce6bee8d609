#include "feeds/WantedFeeds.h"

#include <algorithm>
#include <limits>

namespace lenslark {
namespace {

LLCamera cameraCode(std::optional<CameraPosition> camera) noexcept {
  if (!camera) return LLCameraDevice;
  return *camera == CameraPosition::back ? LLCameraBack : LLCameraFront;
}

/// More than any source can do is no other wish than what it can.
int framesPerSecond(std::int64_t wanted) noexcept {
  using Limits = std::numeric_limits<int>;
  return static_cast<int>(std::clamp<std::int64_t>(wanted, Limits::min(), Limits::max()));
}

class Planner {
 public:
  explicit Planner(const FeedSituation& situation) : situation_(situation) {}

  void addDevice(const ConnectedDevice& device) {
    const auto back = situation_.config.resolve(device.key, CameraPosition::back);
    if (!device.isIOS()) return addFeed(device, std::nullopt, back);
    const auto front = situation_.config.resolve(device.key, CameraPosition::front);
    if (back.sameContent(front)) return addFeed(device, std::nullopt, back);
    addFeed(device, CameraPosition::back, back);
    addFeed(device, CameraPosition::front, front);
  }

  void addGlobal() {
    const auto assignment = situation_.config.global();
    if (auto feed = want(nullptr, assignment)) {
      feed->path = situation_.globalPath;
      add(std::move(*feed));
    }
  }

  std::vector<WantedFeed> take() { return std::move(feeds_); }

 private:
  void addFeed(const ConnectedDevice& device, std::optional<CameraPosition> camera,
               const Assignment& assignment) {
    auto feed = want(&device, assignment);
    if (!feed) return;
    feed->path = device.feedPath(camera);
    feed->camera = cameraCode(camera);
    feed->device = device.key;
    add(std::move(*feed));
  }

  /// All of a feed but its place. `device` is null for the global feed.
  std::optional<WantedFeed> want(const ConnectedDevice* device,
                                 const Assignment& assignment) const {
    const auto& overrides = situation_.overrides;
    const auto& settings = situation_.config.settings;
    const auto& spec = overrides.source ? *overrides.source : assignment.source;
    auto source = sourceRequest(spec, device, framesPerSecond(overrides.fps.value_or(settings.fps)),
                                situation_.media, situation_.mediaUnread);
    if (!source) return std::nullopt;

    const bool android = device && !device->isIOS();
    WantedFeed feed;
    feed.source = std::move(*source);
    feed.style = {.android = android,
                  .desktop = spec.is<SourceSpec::Desktop>(),
                  .fill = overrides.fill.value_or(settings.fill),
                  .overlay = assignment.overlay};
    feed.sceneMode = android || feed.style.fill ? LLSceneModeFill : LLSceneModeFit;
    if (assignment.overlay) {
      const auto file = situation_.media.find(assignment.overlay->media);
      if (file != situation_.media.end()) feed.overlayFile = file->second;
    }
    return feed;
  }

  void add(WantedFeed feed) {
    if (paths_.insert(feed.path).second) feeds_.push_back(std::move(feed));
  }

  const FeedSituation& situation_;
  std::vector<WantedFeed> feeds_;
  std::set<std::string> paths_;
};

}  // namespace

std::vector<WantedFeed> wantedFeeds(const FeedSituation& situation) {
  Planner planner(situation);
  for (const auto& device : situation.devices) planner.addDevice(device);
  planner.addGlobal();
  return planner.take();
}

std::set<std::string> unwantedPaths(const FeedSituation& situation,
                                    const std::vector<WantedFeed>& wanted) {
  std::set<std::string> paths;
  for (const auto& device : situation.devices) {
    paths.insert(device.feedPath(std::nullopt));
    for (const auto camera : device.key.cameras()) paths.insert(device.feedPath(camera));
  }
  for (const auto& feed : wanted) paths.erase(feed.path);
  return paths;
}

std::vector<DeviceStatus> deviceStatuses(const FeedSituation& situation,
                                         const std::set<std::string>& open) {
  std::vector<DeviceStatus> statuses;
  for (const auto& device : situation.devices) {
    DeviceStatus status{device, {}};
    for (const auto camera : device.key.cameras()) {
      CameraStatus shown{camera, situation.config.resolve(device.key, camera), std::nullopt};
      if (situation.overrides.source) shown.assignment.source = *situation.overrides.source;
      // As a reader looks for them: the camera's own file, then the device's.
      for (auto path : {device.feedPath(camera), device.feedPath(std::nullopt)}) {
        if (shown.feedPath || !open.contains(path)) continue;
        shown.feedPath = std::move(path);
      }
      status.cameras.push_back(std::move(shown));
    }
    statuses.push_back(std::move(status));
  }
  return statuses;
}

}  // namespace lenslark
