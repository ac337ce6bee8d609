#pragma once

#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11Picture.h"

namespace lenslark {

/// The screen behind all windows. What a covered part of the root looks like is kept nowhere; it
/// is what desktops leave in _XROOTPMAP_ID, or else the root's background as the server paints it
/// into a window of ours at the bottom, which is kept off the screen. Where neither can be had
/// (beside a compositor) it is black.
class X11Background {
 public:
  explicit X11Background(const X11Connection& x);
  ~X11Background();
  X11Background(const X11Background&) = delete;
  X11Background& operator=(const X11Background&) = delete;

  /// Our own window, which belongs into no picture; XCB_NONE without one.
  xcb_window_t window() const noexcept { return window_; }

  /// Whether the event says that the background changed.
  bool handle(const xcb_generic_event_t& event);

  void paint(const X11Picture& target, const Region& region, const PixelRect& area);

 private:
  void readRootPixmap();
  void makeWindow();

  const X11Connection& x_;
  const xcb_atom_t rootPixmapAtom_;
  xcb_pixmap_t rootPixmap_ = XCB_NONE;
  xcb_window_t window_ = XCB_NONE;
  xcb_gcontext_t gc_;
};

}  // namespace lenslark
