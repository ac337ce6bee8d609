#include "platform/linux/XcbScreen.h"

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

[[noreturn]] void refuseToCapture() {
  throw CaptureError::unavailable("this build of Lenslark lists windows but does not film them.");
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

std::unique_ptr<ScreenStream> XcbScreen::captureDisplay(std::uint32_t, const Request&, FrameHandler,
                                                        StopHandler) {
  refuseToCapture();
}

std::unique_ptr<ScreenStream> XcbScreen::captureWindow(std::uint32_t, const Request&, FrameHandler,
                                                       StopHandler) {
  refuseToCapture();
}

std::unique_ptr<ScreenStream> XcbScreen::captureArea(const PixelRect&, const ExcludedApplications&,
                                                     const Request&, FrameHandler, StopHandler) {
  refuseToCapture();
}

std::unique_ptr<Screen> makeScreen() { return std::make_unique<XcbScreen>(); }

}  // namespace lenslark
