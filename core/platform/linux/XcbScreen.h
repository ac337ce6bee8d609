#pragma once

#include "platform/Screen.h"
#include "platform/linux/BoundedCall.h"

namespace lenslark {

/// The displays and windows of an X server (RandR 1.5, EWMH 1.5, X-Resource 1.2).
///
/// Every question opens a connection of its own: it sees the server that $DISPLAY names at that
/// moment, and a server that went away or hangs is an error of one call.
class XcbScreen final : public Screen {
 public:
  ScreenContent content() override;
  std::optional<Rect> windowBounds(std::uint32_t window) override;
  std::unique_ptr<ScreenStream> captureDisplay(std::uint32_t display, const Request& request,
                                               FrameHandler onFrame, StopHandler onStop) override;
  std::unique_ptr<ScreenStream> captureWindow(std::uint32_t window, const Request& request,
                                              FrameHandler onFrame, StopHandler onStop) override;
  std::unique_ptr<ScreenStream> captureArea(const PixelRect& area,
                                            const ExcludedApplications& excluded,
                                            const Request& request, FrameHandler onFrame,
                                            StopHandler onStop) override;

 private:
  BoundedCall bounded_;
};

}  // namespace lenslark
