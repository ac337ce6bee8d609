#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "devices/ConnectedDevice.h"
#include "platform/Screen.h"
#include "sources/StreamFailure.h"
#include "sources/WindowFollowingSource.h"

namespace lenslark {

/// Films the part of the desktop that lies under a device's window, the window itself and its
/// application left out: what is held behind the window is in front of the camera. While the
/// window lies on no display nothing is filmed, and the picture stays as it was.
/// **Threads**: as WindowFollowingSource.
class DesktopUnderWindowSource final : public WindowFollowingSource {
 public:
  /// `device` has a window. The screen must outlive the source.
  DesktopUnderWindowSource(Screen& screen, ConnectedDevice device, ExcludedApplications excluded,
                           int fps);

  ContentKind kind() const noexcept override { return ContentKind::live; }
  void start(Emit emit) override;
  std::optional<std::string> problem() const override { return failure_.reason(); }
  void stop() override;
  bool track() override;

 private:
  struct Target {
    PixelRect area;
    Size output;
  };
  std::optional<Target> targetFor(const Rect& window,
                                  const std::vector<DisplayInfo>& displays) const;
  std::optional<std::vector<DisplayInfo>> displaysNow();
  std::unique_ptr<ScreenStream> film(const Target& target, const Emit& emit);
  void filmAgain(const Target& target);
  std::string filmed() const;

  Screen& screen_;
  const ConnectedDevice device_;
  ExcludedApplications excluded_;
  const int fps_;
  StreamFailure failure_;

  std::mutex mutex_;  // guards all below
  std::vector<DisplayInfo> displays_;
  Rect sourceRect_;
  Emit emit_;  ///< Empty before the start and after the end.
  std::unique_ptr<ScreenStream> stream_;
};

}  // namespace lenslark
