#include "feeds/SourceFactory.h"

#include "base/Error.h"
#include "devices/DeviceMerge.h"
#include "sources/DesktopUnderWindowSource.h"
#include "sources/ImageSource.h"
#include "sources/PatternSource.h"
#include "sources/ScreenSource.h"
#include "sources/SlideshowSource.h"
#include "sources/VideoSource.h"

namespace lenslark {
namespace {

using SourcePtr = std::unique_ptr<FrameSource>;

/// Stands for what cannot be shown.
class UnavailableSource final : public FrameSource {
 public:
  explicit UnavailableSource(std::string reason) : reason_(std::move(reason)) {}

  ContentKind kind() const noexcept override { return ContentKind::live; }
  void start(Emit) override { throw Error(reason_); }
  void stop() override {}

 private:
  const std::string reason_;
};

class Factory {
 public:
  explicit Factory(Screen* screen) : screen_(screen) {}

  SourcePtr operator()(const SourceDescription::Desktop& desktop) const {
    if (screen_ == nullptr) return noScreen();
    return std::make_unique<DesktopUnderWindowSource>(*screen_, desktop.device, deviceWindows(),
                                                      desktop.fps);
  }
  SourcePtr operator()(const SourceDescription::Display& display) const {
    return capture({CaptureSource::Display{display.index}}, display.fps);
  }
  SourcePtr operator()(const SourceDescription::Window& window) const {
    return capture({CaptureSource::Window{window.match}}, window.fps);
  }
  SourcePtr operator()(const SourceDescription::Image& image) const {
    return std::make_unique<ImageSource>(image.file);
  }
  SourcePtr operator()(const SourceDescription::Video& video) const {
    return std::make_unique<VideoSource>(video.file, video.loop, video.fps);
  }
  SourcePtr operator()(const SourceDescription::Slideshow& show) const {
    return std::make_unique<SlideshowSource>(show.files, show.intervalSec);
  }
  SourcePtr operator()(const SourceDescription::Pattern& pattern) const {
    return std::make_unique<PatternSource>(pattern.fps);
  }
  SourcePtr operator()(const SourceDescription::Unavailable& unavailable) const {
    return std::make_unique<UnavailableSource>(unavailable.reason);
  }

 private:
  /// The applications that show devices: their windows never appear in a device's camera.
  static ExcludedApplications deviceWindows() {
    return {{std::string(DeviceMerge::simulatorBundle)},
            {std::string(DeviceMerge::emulatorEngine)},
            {}};
  }

  static SourcePtr noScreen() {
    return std::make_unique<UnavailableSource>(
        "screen capture is not available: no display server");
  }

  SourcePtr capture(CaptureSource source, int fps) const {
    if (screen_ == nullptr) return noScreen();
    CaptureOptions options{.source = std::move(source), .fps = fps};
    return std::make_unique<ScreenSource>(*screen_, std::move(options));
  }

  Screen* screen_;
};

}  // namespace

SourceFactory systemSources(Screen* screen) {
  return [factory = Factory(screen)](const SourceDescription& description) {
    return std::visit(factory, description.value);
  };
}

}  // namespace lenslark
