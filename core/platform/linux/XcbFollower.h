#pragma once

#include <optional>
#include <vector>

#include "platform/Screen.h"
#include "platform/linux/XcbAtoms.h"
#include "platform/linux/XcbConnection.h"

namespace lenslark {

/// Where one window is, and the displays: asked once, and then followed by what the server tells.
/// **Threads**: one at a time.
class XcbFollower {
 public:
  /// Waits for the server's answers. **Fails** with CaptureError.
  explicit XcbFollower(xcb_window_t window);

  /// Takes in what the server has told, without waiting. False when that was something after which
  /// a new follower must ask; this one is of no more use then.
  bool upToDate();

  /// With the window's frame, as `XcbTree::frames`. Nothing when it is gone.
  const std::optional<Rect>& bounds() const noexcept { return bounds_; }
  const std::vector<DisplayInfo>& displays() const noexcept { return displays_; }

 private:
  void select();
  bool take(const xcb_generic_event_t& event);
  void moved(const Rect& outer);

  const XcbConnection connection_;
  const XcbAtoms atoms_;
  const xcb_window_t window_;
  xcb_window_t topLevel_ = XCB_WINDOW_NONE;
  std::optional<Rect> outer_;  ///< Of the child of the root that holds the window.
  std::optional<Rect> bounds_;
  std::vector<DisplayInfo> displays_;
  bool outdated_ = false;
};

}  // namespace lenslark
