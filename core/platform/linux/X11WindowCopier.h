#pragma once

#include <xcb/render.h>

#include <map>

#include "platform/linux/X11Connection.h"
#include "platform/linux/X11Picture.h"
#include "platform/linux/X11RegionCopy.h"
#include "platform/linux/X11TopLevel.h"

namespace lenslark {

/// Copies windows' pixels, children included, into a picture of the screen.
/// **Threads**: one at a time, as its connection.
class X11WindowCopier {
 public:
  explicit X11WindowCopier(const X11Connection& x);
  ~X11WindowCopier();
  X11WindowCopier(const X11WindowCopier&) = delete;
  X11WindowCopier& operator=(const X11WindowCopier&) = delete;

  /// Whether its pixels have an alpha.
  bool hasAlpha(const X11TopLevel& window) const;

  /// `region` of the screen, of which the picture shows `area`; laid over what is there already
  /// when `translucent`.
  void copy(const X11TopLevel& window, const X11Picture& target, const Region& region,
            const PixelRect& area, bool translucent);
  void black(const X11Picture& target, const Region& region, const PixelRect& area);

  /// Lets go of what was made for the windows that were copied.
  void forget();

 private:
  struct Format {
    xcb_render_pictformat_t own = XCB_NONE;
    xcb_render_pictformat_t opaque = XCB_NONE;  ///< The same pixels with the alpha left out.
  };
  struct Source {
    xcb_drawable_t drawable;
    int border;  ///< Where the window's corner lies in it.
  };

  void readFormats();
  Source sourceOf(const X11TopLevel& window);
  xcb_render_picture_t pictureOf(xcb_drawable_t drawable, xcb_render_pictformat_t format);

  const X11Connection& x_;
  const X11RegionCopy copy_;
  const xcb_gcontext_t black_;
  std::map<xcb_visualid_t, Format> formats_;
  std::map<xcb_drawable_t, xcb_render_picture_t> pictures_;
  std::map<xcb_window_t, xcb_pixmap_t> stores_;
};

}  // namespace lenslark
