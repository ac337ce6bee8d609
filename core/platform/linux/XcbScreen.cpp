#include "platform/linux/XcbScreen.h"

#include <algorithm>
#include <utility>

#include "platform/linux/X11Stream.h"
#include "platform/linux/XcbAtoms.h"
#include "platform/linux/XcbConnection.h"
#include "platform/linux/XcbWindows.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;

/// A server that is alive answers in a few milliseconds.
constexpr auto patienceForContent = 2s;
/// Asked many times a second.
constexpr auto patienceForBounds = 500ms;
/// A window that nobody asked for this long is not followed any more.
constexpr auto followedFor = 10s;

ScreenContent readContent() {
  const XcbConnection connection;
  ScreenContent content{.displays = XcbWindows::displays(connection),
                        .windows = XcbWindows::list(connection, XcbAtoms(connection))};
  if (connection.broken()) {
    throw CaptureError::unavailable("the X display closed the connection.");
  }
  return content;
}

std::shared_ptr<XcbFollower> makeFollower(std::uint32_t window) {
  try {
    return std::make_shared<XcbFollower>(window);
  } catch (const CaptureError&) {
    return nullptr;
  }
}

}  // namespace

ScreenContent XcbScreen::content() {
  if (auto content = bounded_(patienceForContent, readContent)) return std::move(*content);
  throw CaptureError::unavailable("the X display does not answer.");
}

std::optional<Rect> XcbScreen::windowBounds(std::uint32_t window) {
  const std::lock_guard lock(mutex_);
  const auto follower = follow(window);
  return follower ? follower->bounds() : std::nullopt;
}

std::vector<DisplayInfo> XcbScreen::displays() {
  {
    const std::lock_guard lock(mutex_);
    for (const auto& [window, followed] : followed_) {
      if (followed.follower->upToDate()) return followed.follower->displays();
    }
  }
  return content().displays;
}

std::shared_ptr<XcbFollower> XcbScreen::follow(std::uint32_t window) {
  const auto now = std::chrono::steady_clock::now();
  forgetIdle(now);
  const auto known = followed_.find(window);
  if (known != followed_.end() && known->second.follower->upToDate()) {
    known->second.asked = now;
    return known->second.follower;
  }
  followed_.erase(window);
  auto follower =
      bounded_(patienceForBounds, [window] { return makeFollower(window); }).value_or(nullptr);
  // One that is gone needs no following.
  if (follower && follower->upToDate()) followed_[window] = {follower, now};
  return follower;
}

void XcbScreen::forgetIdle(std::chrono::steady_clock::time_point now) {
  std::erase_if(followed_,
                [now](const auto& entry) { return now - entry.second.asked > followedFor; });
}

std::unique_ptr<ScreenStream> XcbScreen::captureDisplay(std::uint32_t display,
                                                        const Request& request,
                                                        FrameHandler onFrame, StopHandler onStop) {
  return startX11Stream([display](const X11Connection& x) { return makeDisplayScene(x, display); },
                        request, std::move(onFrame), std::move(onStop));
}

std::unique_ptr<ScreenStream> XcbScreen::captureWindow(std::uint32_t window, const Request& request,
                                                       FrameHandler onFrame, StopHandler onStop) {
  return startX11Stream([window](const X11Connection& x) { return makeWindowScene(x, window); },
                        request, std::move(onFrame), std::move(onStop));
}

std::unique_ptr<ScreenStream> XcbScreen::captureArea(const PixelRect& area,
                                                     const ExcludedApplications& excluded,
                                                     const Request& request, FrameHandler onFrame,
                                                     StopHandler onStop) {
  return startX11Stream([&](const X11Connection& x) { return makeAreaScene(x, area, excluded); },
                        request, std::move(onFrame), std::move(onStop));
}

}  // namespace lenslark
