#pragma once

#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11Picture.h"
#include "platform/linux/X11RegionCopy.h"

namespace lenslark {

/// The screen behind all windows. What a covered part of the root looks like is kept nowhere; it
/// is what desktops leave in _XROOTPMAP_ID, or else the root's background as the server paints it
/// into a window of ours. That window lies inside another one, of a single pixel and off the
/// screen: so nothing of it is seen, and a compositor that takes over the root's children later (or
/// has already) finds none among them that was taken.
class X11Background {
 public:
  explicit X11Background(const X11Connection& x);
  ~X11Background();
  X11Background(const X11Background&) = delete;
  X11Background& operator=(const X11Background&) = delete;

  /// The child of the root that is ours.
  xcb_window_t window() const noexcept { return holder_; }

  /// Whether the event says that the background changed.
  bool handle(const xcb_generic_event_t& event);

  void paint(const X11Picture& target, const Region& region, const PixelRect& area);

 private:
  void readRootPixmap();
  void makeWindow();

  const X11Connection& x_;
  const X11RegionCopy copy_;
  const xcb_atom_t rootPixmapAtom_;
  xcb_pixmap_t rootPixmap_ = XCB_NONE;
  const xcb_window_t holder_;
  const xcb_window_t window_;
  xcb_gcontext_t gc_;
};

}  // namespace lenslark
