#include "feeds/SourceFactory.h"

#include "base/Error.h"
#include "sources/ImageSource.h"
#include "sources/PatternSource.h"
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

  SourcePtr operator()(const SourceDescription::Desktop&) const { return capture(); }
  SourcePtr operator()(const SourceDescription::Display&) const { return capture(); }
  SourcePtr operator()(const SourceDescription::Window&) const { return capture(); }
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
  SourcePtr capture() const {
    return std::make_unique<UnavailableSource>(
        screen_ ? "screen capture is not available in this build"
                : "screen capture is not available: no display server");
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
