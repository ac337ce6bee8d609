#include "sources/DesktopUnderWindowSource.h"

#include <cmath>
#include <utility>

#include "sources/CaptureGeometry.h"

namespace lenslark {
namespace {

PixelRect onScreen(const Rect& source, const Rect& display) {
  const auto whole = [](double value) { return static_cast<int>(std::lround(value)); };
  return {whole(source.x + display.x), whole(source.y + display.y), whole(source.width),
          whole(source.height)};
}

}  // namespace

DesktopUnderWindowSource::DesktopUnderWindowSource(Screen& screen, ConnectedDevice device,
                                                   ExcludedApplications excluded, int fps)
    : screen_(screen),
      device_(std::move(device)),
      excluded_(std::move(excluded)),
      fps_(fps < 2 ? 1 : fps) {
  // Whoever it turns out to belong to: it is what the camera must not see.
  excluded_.windows.push_back(device_.window->windowID);
}

std::optional<DesktopUnderWindowSource::Target> DesktopUnderWindowSource::targetFor(
    const Rect& window, const std::vector<DisplayInfo>& displays) const {
  const DisplayInfo* display = CaptureGeometry::display(window, displays);
  if (display == nullptr) return std::nullopt;
  const auto capture = CaptureGeometry::capture(window, !device_.isIOS(), display->frame);
  return Target{onScreen(capture.source, display->frame), capture.output};
}

void DesktopUnderWindowSource::start(Emit emit) {
  failure_.clear();
  const auto bounds = screen_.windowBounds(device_.window->windowID);
  if (!bounds) throw CaptureError::unavailable("the window of " + device_.name + " is gone");
  auto displays = screen_.content().displays;
  const auto target = targetFor(*bounds, displays);
  auto stream = target ? film(*target, emit) : nullptr;

  const std::lock_guard lock(mutex_);
  displays_ = std::move(displays);
  sourceRect_ = *bounds;
  stream_ = std::move(stream);
  emit_ = std::move(emit);
}

std::unique_ptr<ScreenStream> DesktopUnderWindowSource::film(const Target& target,
                                                             const Emit& emit) {
  return screen_.captureArea(target.area, excluded_, {target.output, fps_, true}, emit,
                             [this](const Error& error) { failure_.note(filmed(), error); });
}

void DesktopUnderWindowSource::stop() {
  std::unique_ptr<ScreenStream> ended;
  {
    const std::lock_guard lock(mutex_);
    ended = std::move(stream_);
    emit_ = nullptr;
  }
}

bool DesktopUnderWindowSource::track() {
  {
    const std::lock_guard lock(mutex_);
    if (!emit_) return false;
  }
  const auto bounds = screen_.windowBounds(device_.window->windowID);
  if (!bounds) return false;
  auto displays = displaysNow();
  std::optional<Target> target;
  std::unique_ptr<ScreenStream> ended;
  {
    const std::lock_guard lock(mutex_);
    if (!displays) displays = displays_;
    if (*bounds == sourceRect_ && *displays == displays_) return false;
    sourceRect_ = *bounds;
    displays_ = std::move(*displays);
    target = targetFor(*bounds, displays_);
    if (stream_ == nullptr && !target) return false;
    if (stream_ != nullptr && target) {
      stream_->retarget(target->area, target->output);
      return true;
    }
    ended = std::move(stream_);
  }
  if (target) filmAgain(*target);
  return true;
}

void DesktopUnderWindowSource::filmAgain(const Target& target) {
  try {
    Emit emit;
    {
      const std::lock_guard lock(mutex_);
      emit = emit_;
    }
    if (!emit) return;
    auto stream = film(target, emit);
    const std::lock_guard lock(mutex_);
    // Where the source was stopped meanwhile, the new stream ends here.
    if (emit_) stream_.swap(stream);
  } catch (const CaptureError& error) {
    failure_.note(filmed(), error);
  } catch (const std::exception& error) {
    failure_.note(filmed(), CaptureError::unavailable(error.what()));
  }
}

std::string DesktopUnderWindowSource::filmed() const { return "the desktop under " + device_.name; }

/// Nothing where they cannot be asked for: those known are taken to be there still.
std::optional<std::vector<DisplayInfo>> DesktopUnderWindowSource::displaysNow() {
  try {
    return screen_.displays();
  } catch (const CaptureError&) {
    return std::nullopt;
  }
}

}  // namespace lenslark
