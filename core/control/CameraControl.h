#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/ConfigStore.h"
#include "control/CameraDescription.h"
#include "control/ControlError.h"
#include "devices/ConnectedDevice.h"
#include "graphics/PixelBuffer.h"
#include "media/MediaLibrary.h"

namespace lenslark {

/// Booted simulators and running emulators, by name; those of one name in the order in which they
/// were found. Runs the tools that list them; where one is missing, or what it says cannot be
/// understood (which is logged), those that the other lists are still listed.
std::vector<ConnectedDevice> connectedDevices();

/// Changes and tells what cameras see: the one way in for the command line and for agents.
///
/// **Threads**: any. **Owns** nothing: store and library must outlive it.
/// **Fails** with ControlError where nothing else is said; errors of the store, the library and
/// the device tools pass through.
class CameraControl {
 public:
  using DeviceLister = std::function<std::vector<ConnectedDevice>()>;
  /// How far the import of `path` has come.
  using ImportProgress =
      std::function<void(const std::string& path, const MediaLibrary::Progress& progress)>;

  /// All that one call can say about a source. Absent means not said.
  struct SetRequest {
    std::string kind;
    std::vector<std::string> paths;  ///< Files or folders, as the user gave them.
    std::optional<std::int64_t> displayIndex;
    std::optional<std::string> windowMatch;
    bool loop = true;
    double interval = SourceSpec::Slideshow::defaultIntervalSec;  ///< Seconds.
    std::optional<std::string> device;  ///< A selector; nothing is the global scope.
    std::optional<CameraPosition> camera;
    std::optional<std::string> overlayPath;
    Anchor anchor = Anchor::bottomRight;
    double scale = 0.25;
    double opacity = 1;
    std::optional<double> x;
    std::optional<double> y;
  };

  explicit CameraControl(ConfigStore& store, MediaLibrary& media,
                         DeviceLister listDevices = lenslark::connectedDevices);

  ConfigStore& store() const noexcept { return *store_; }
  MediaLibrary& media() const noexcept { return *media_; }

  std::vector<ConnectedDevice> connectedDevices() const { return listDevices_(); }
  /// See DeviceSelector. A device key costs no listing.
  std::vector<DeviceKey> devices(std::string_view selector) const;
  std::vector<Scope> scopes(const std::optional<std::string>& device,
                            std::optional<CameraPosition> camera) const;

  /// Imports what the request names and stores one assignment for each scope, all in one change of
  /// the configuration. Returns them in the order of the scopes. Nothing is stored where it fails;
  /// files that were imported by then stay in the library.
  std::vector<Assignment> set(const SetRequest& request, const ImportProgress& progress = {}) const;

  /// Imports one file; with `expect`, **fails** when it is of the other kind (it stays in the
  /// library then). A path that begins with "~/" means the home directory unless there is such a
  /// file: not every caller is a shell.
  MediaItem importMedia(const std::string& path, std::optional<MediaItem::Kind> expect = {},
                        const ImportProgress& progress = {}) const;

  /// Removes the settings of the scopes, or every setting there is.
  void reset(const std::optional<std::string>& device, std::optional<CameraPosition> camera,
             bool all) const;

  struct Snapshot {
    std::shared_ptr<PixelBuffer> image;
    std::string deviceName;
  };
  /// The latest frame that a camera of the first device named is being fed, its longer side at
  /// most `maxSide`.
  Snapshot snapshot(const std::string& device, CameraPosition camera,
                    std::optional<int> maxSide = {}) const;

  /// The names of the media in the library, which is read when the first one is asked for.
  CameraDescription::MediaNames mediaNames() const;
  nlohmann::json describe(const Assignment& assignment) const;
  std::string summary(const Assignment& assignment) const;
  nlohmann::json devicesJSON() const;

 private:
  SourceSpec makeSource(const SetRequest& request, const ImportProgress& progress) const;

  ConfigStore* store_;
  MediaLibrary* media_;
  DeviceLister listDevices_;
};

}  // namespace lenslark
