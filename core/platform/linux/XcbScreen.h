#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/Screen.h"
#include "platform/linux/BoundedCall.h"
#include "platform/linux/XcbFollower.h"

namespace lenslark {

/// The displays and windows of an X server (RandR 1.5, EWMH 1.5, X-Resource 1.2).
///
/// A question opens a connection of its own: it sees the server that $DISPLAY names at that moment,
/// and a server that went away or hangs is an error of one call. Windows that are asked for again
/// and again are followed on a connection that stays.
class XcbScreen final : public Screen {
 public:
  ScreenContent content() override;
  std::vector<DisplayInfo> displays() override;
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
  std::shared_ptr<XcbFollower> follow(std::uint32_t window);
  void forgetIdle(std::chrono::steady_clock::time_point now);

  BoundedCall bounded_;

  struct Followed {
    std::shared_ptr<XcbFollower> follower;
    std::chrono::steady_clock::time_point asked;
  };
  std::mutex mutex_;  // guards all below, and the followers' use
  std::map<std::uint32_t, Followed> followed_;
};

}  // namespace lenslark
