#include "platform/linux/XcbScreen.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/linux/X11Stream.h"
#include "platform/linux/XcbAtoms.h"
#include "platform/linux/XcbConnection.h"
#include "platform/linux/XcbTree.h"
#include "platform/linux/XcbWindows.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;

/// A server that is alive answers in a few milliseconds.
constexpr auto patienceForContent = 2s;
/// Asked many times a second.
constexpr auto patienceForBounds = 500ms;

ScreenContent readContent() {
  const XcbConnection connection;
  ScreenContent content{.displays = XcbWindows::displays(connection),
                        .windows = XcbWindows::list(connection, XcbAtoms(connection))};
  if (connection.broken()) {
    throw CaptureError::unavailable("the X display closed the connection.");
  }
  return content;
}

std::optional<Rect> readBounds(std::uint32_t window) {
  try {
    const XcbConnection connection;
    return XcbTree::frames(connection, XcbAtoms(connection), {window}).front();
  } catch (const CaptureError&) {
    return std::nullopt;
  }
}

}  // namespace

ScreenContent XcbScreen::content() {
  if (auto content = bounded_(patienceForContent, readContent)) return std::move(*content);
  throw CaptureError::unavailable("the X display does not answer.");
}

std::optional<Rect> XcbScreen::windowBounds(std::uint32_t window) {
  return bounded_(patienceForBounds, [window] { return readBounds(window); })
      .value_or(std::nullopt);
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
