#include "sources/ScreenCapturer.h"

#include <algorithm>
#include <utility>

#include "base/Text.h"

namespace lenslark {
namespace {

bool isNormal(const WindowInfo& window) { return window.layer == 0; }

}  // namespace

ScreenCapturer::ScreenCapturer(Screen& screen, Screen::FrameHandler onFrame,
                               Screen::StopHandler onStop)
    : screen_(screen), onFrame_(std::move(onFrame)), onStop_(std::move(onStop)) {}

ScreenCapturer::Sources ScreenCapturer::listSources(Screen& screen) {
  ScreenContent content = screen.content();
  std::erase_if(content.windows, [](const WindowInfo& window) {
    return !isNormal(window) || window.frame.width <= 64 || window.frame.height <= 64;
  });
  return {std::move(content.displays), std::move(content.windows)};
}

const WindowInfo& ScreenCapturer::findWindow(const std::string& match,
                                             const ScreenContent& content) {
  const std::string wanted = Text::lowercase(match);
  const auto holds = [&](const std::string& text) {
    return Text::lowercase(text).find(wanted) != std::string::npos;
  };
  const auto found = std::ranges::find_if(content.windows, [&](const WindowInfo& window) {
    return isNormal(window) && (holds(window.title) || holds(window.applicationName));
  });
  if (found == content.windows.end()) throw CaptureError::noWindow(match);
  return *found;
}

void ScreenCapturer::start(const CaptureOptions& options) {
  const ScreenContent content = screen_.content();
  const Screen::Request request{
      {options.width, options.height}, options.fps < 2 ? 1 : options.fps, options.showsCursor};
  if (const auto* display = std::get_if<CaptureSource::Display>(&options.source.value)) {
    const auto count = static_cast<std::int64_t>(content.displays.size());
    if (display->index < 0 || display->index >= count) {
      throw CaptureError::noDisplay(display->index);
    }
    const auto index = static_cast<std::size_t>(display->index);
    stream_ = screen_.captureDisplay(content.displays[index].id, request, onFrame_, onStop_);
    return;
  }
  const auto& match = std::get<CaptureSource::Window>(options.source.value).match;
  stream_ = screen_.captureWindow(findWindow(match, content).id, request, onFrame_, onStop_);
}

void ScreenCapturer::stop() { stream_.reset(); }

}  // namespace lenslark
