#include "control/CameraControl.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>

#include "base/Log.h"
#include "base/Text.h"
#include "base/WholeFile.h"
#include "control/DeviceSelector.h"
#include "control/SlideshowFiles.h"
#include "devices/AndroidEmulator.h"
#include "devices/DeviceMerge.h"
#include "devices/Simulator.h"
#include "feeds/FeedReader.h"
#include "platform/UserDirectories.h"

namespace lenslark {
namespace {

using Names = std::map<std::string, std::string, std::less<>>;

/// None where the library cannot be read now: what is shown without its name is better than
/// nothing.
Names namesIn(const MediaLibrary& media) {
  Names names;
  try {
    for (MediaItem& item : media.items()) names.emplace(std::move(item.id), std::move(item.name));
  } catch (const std::system_error&) {
  }
  return names;
}

namespace fs = std::filesystem;

/// A tool that cannot be started for want of descriptors or processes says nothing of the devices;
/// one that is not there says that there are none.
void tellOfShortage(const char* devices, const std::system_error& error) {
  const int number = error.code().value();
  if (!isShortage(number) && number != EAGAIN) return;
  Log::router().error("{} cannot be listed: {}", devices, error.what());
}

std::vector<Simulator::Device> bootedSimulators() {
  try {
    return Simulator::bootedDevices();
  } catch (const std::system_error& error) {
    tellOfShortage("simulators", error);
    return {};
  } catch (const std::exception& error) {
    // The emulators can be listed all the same.
    Log::router().error("simctl cannot be understood: {}", error.what());
    return {};
  }
}

std::vector<AndroidEmulator::Process> runningEmulators() {
  try {
    return AndroidEmulator::processes();
  } catch (const std::system_error& error) {
    tellOfShortage("emulators", error);
    return {};  // The simulators can be listed all the same.
  }
}

fs::path withoutTilde(const std::string& path) {
  std::error_code unreadable;
  if (!path.starts_with("~/") || fs::exists(path, unreadable)) return path;
  return UserDirectories::home() / path.substr(2);
}

void requireKind(const MediaItem& item, MediaItem::Kind expected, const std::string& path) {
  if (item.kind == expected) return;
  const bool video = item.kind == MediaItem::Kind::video;
  throw ControlError::badArgs(path +
                              (video ? " is a video, not an image" : " is an image, not a video"));
}

SourceSpec::Display makeDisplay(const CameraControl::SetRequest& request) {
  if (request.displayIndex) return {*request.displayIndex};
  // A display that does not exist is told of when it is captured.
  if (request.paths.empty()) return {0};
  return {Text::parseInteger(request.paths.front()).value_or(0)};
}

SourceSpec::Window makeWindow(const CameraControl::SetRequest& request) {
  std::string match = request.windowMatch.value_or("");
  if (match.empty() && !request.paths.empty()) match = request.paths.front();
  if (match.empty()) throw ControlError::badArgs("window needs a title or app name");
  return {Text::repairUtf8(match)};
}

const std::string& firstPath(const CameraControl::SetRequest& request, const char* missing) {
  if (request.paths.empty()) throw ControlError::badArgs(missing);
  return request.paths.front();
}

void requireCameraExists(const std::vector<Scope>& scopes, std::optional<CameraPosition> camera) {
  if (camera != CameraPosition::front) return;
  const bool android = std::ranges::any_of(
      scopes, [](const Scope& scope) { return scope.device()->platform == Platform::android; });
  if (!android) return;
  throw ControlError::badArgs(
      "Android emulators have one Lenslark camera (the back camera; the emulator takes a single "
      "webcam). Set it without --camera, or with --camera back.");
}

}  // namespace

std::vector<ConnectedDevice> connectedDevices() {
  auto devices = DeviceMerge::withoutWindows(bootedSimulators(), runningEmulators());
  std::ranges::stable_sort(devices, {}, &ConnectedDevice::name);
  return devices;
}

CameraControl::CameraControl(ConfigStore& store, MediaLibrary& media, DeviceLister listDevices)
    : store_(&store), media_(&media), listDevices_(std::move(listDevices)) {}

std::vector<DeviceKey> CameraControl::devices(std::string_view selector) const {
  const std::string text = Text::repairUtf8(selector);
  if (auto key = DeviceKey::parse(text)) return {*std::move(key)};
  return DeviceSelector::select(text, connectedDevices(), store_->config().knownDevices);
}

std::vector<Scope> CameraControl::scopes(const std::optional<std::string>& device,
                                         std::optional<CameraPosition> camera) const {
  if (!device) {
    if (camera) throw ControlError::badArgs("--camera needs --device");
    return {Scope::global()};
  }
  std::vector<Scope> scopes;
  for (DeviceKey& key : devices(*device)) {
    scopes.push_back(camera ? Scope::camera(std::move(key), *camera)
                            : Scope::device(std::move(key)));
  }
  return scopes;
}

SourceSpec CameraControl::makeSource(const SetRequest& request,
                                     const ImportProgress& progress) const {
  const std::string kind = Text::lowercase(request.kind);
  if (kind == "desktop" || kind == "live") return {SourceSpec::Desktop{}};
  if (kind == "pattern" || kind == "test" || kind == "test-pattern") {
    return {SourceSpec::Pattern{}};
  }
  if (kind == "display") return {makeDisplay(request)};
  if (kind == "window") return {makeWindow(request)};
  if (kind == "image") {
    const std::string& path = firstPath(request, "image needs a file");
    return {SourceSpec::Image{importMedia(path, MediaItem::Kind::image, progress).id}};
  }
  if (kind == "video") {
    const std::string& path = firstPath(request, "video needs a file");
    return {
        SourceSpec::Video{importMedia(path, MediaItem::Kind::video, progress).id, request.loop}};
  }
  if (kind == "slideshow") {
    std::vector<fs::path> paths;
    for (const std::string& path : request.paths) paths.push_back(withoutTilde(path));
    const std::vector<fs::path> files = SlideshowFiles::expand(paths);
    if (files.empty()) throw ControlError::badArgs("slideshow needs a folder or images");
    SourceSpec::Slideshow slideshow{.mediaIds = {}, .intervalSec = request.interval};
    for (const fs::path& file : files) {
      slideshow.mediaIds.push_back(importMedia(file.native(), {}, progress).id);
    }
    return {std::move(slideshow)};
  }
  throw ControlError::unknownSource(request.kind);
}

std::vector<Assignment> CameraControl::set(const SetRequest& request,
                                           const ImportProgress& progress) const {
  const std::vector<Scope> targets = scopes(request.device, request.camera);
  requireCameraExists(targets, request.camera);

  const SourceSpec source = makeSource(request, progress);
  std::optional<OverlaySpec> overlay;
  if (request.overlayPath) {
    MediaItem picture = importMedia(*request.overlayPath, MediaItem::Kind::image, progress);
    overlay = OverlaySpec::clamped(std::move(picture.id), request.anchor, request.scale,
                                   request.opacity, request.x, request.y);
  }

  std::vector<Assignment> written;
  const Date now = Clock::now();
  for (const Scope& scope : targets) written.push_back({scope, source, overlay, now});
  store_->update([&](ConfigFile& config) {
    for (const Assignment& assignment : written) config.set(assignment);
  });
  return written;
}

MediaItem CameraControl::importMedia(const std::string& path, std::optional<MediaItem::Kind> expect,
                                     const ImportProgress& progress) const {
  MediaLibrary::ProgressHandler report;
  if (progress) report = [&](const MediaLibrary::Progress& done) { progress(path, done); };
  MediaItem item = media_->importItem(withoutTilde(path), false, report);
  if (expect) requireKind(item, *expect, path);
  return item;
}

void CameraControl::reset(const std::optional<std::string>& device,
                          std::optional<CameraPosition> camera, bool all) const {
  if (all) {
    store_->update([](ConfigFile& config) { config.assignments.clear(); });
    return;
  }
  const std::vector<Scope> targets = scopes(device, camera);
  store_->update([&](ConfigFile& config) {
    for (const Scope& scope : targets) config.reset(scope);
  });
}

CameraControl::Snapshot CameraControl::snapshot(const std::string& device, CameraPosition camera,
                                                std::optional<int> maxSide) const {
  const std::vector<ConnectedDevice> connected = connectedDevices();
  const std::vector<DeviceKey> keys =
      DeviceSelector::select(Text::repairUtf8(device), connected, store_->config().knownDevices);
  if (keys.empty()) throw ControlError::deviceNotFound(device);
  const auto found = std::ranges::find(connected, keys.front(), &ConnectedDevice::key);
  if (found == connected.end()) throw ControlError::deviceNotFound(device);

  if (const auto path = FeedReader::path(*found, camera)) {
    const auto info = FeedReader::info(*path);
    if (info && info->heartbeatAge && *info->heartbeatAge < FeedReader::liveHeartbeat) {
      if (auto frame = FeedReader::image(*path, maxSide)) return {std::move(frame), found->name};
    }
  }
  throw ControlError::appNotRunning(found->name + " has no live feed; is Lenslark on?");
}

CameraDescription::MediaNames CameraControl::mediaNames() const {
  return [media = media_, known = std::shared_ptr<Names>()](
             std::string_view id) mutable -> std::optional<std::string> {
    if (!known) {
      known = std::make_shared<Names>(namesIn(*media));
    }
    const auto found = known->find(id);
    if (found == known->end()) return std::nullopt;
    return found->second;
  };
}

nlohmann::json CameraControl::describe(const Assignment& assignment) const {
  return CameraDescription::describe(assignment, mediaNames());
}

std::string CameraControl::summary(const Assignment& assignment) const {
  return CameraDescription::summary(assignment, mediaNames());
}

nlohmann::json CameraControl::devicesJSON() const {
  return CameraDescription::devicesJSON(connectedDevices(), store_->config(), mediaNames());
}

}  // namespace lenslark
