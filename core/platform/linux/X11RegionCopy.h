#pragma once

#include <xcb/xfixes.h>

#include <optional>
#include <vector>

#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"

namespace lenslark {

/// Copies regions from one drawable to another, children included, each in one request however
/// many rectangles it is made of.
/// **Threads**: one at a time, as its connection.
class X11RegionCopy {
 public:
  explicit X11RegionCopy(const X11Connection& x);
  ~X11RegionCopy();
  X11RegionCopy(const X11RegionCopy&) = delete;
  X11RegionCopy& operator=(const X11RegionCopy&) = delete;

  /// `region` of `to`, which lies in `from` shifted by (x, y).
  void copy(xcb_drawable_t from, xcb_drawable_t to, const Region& region, int x, int y) const;

 private:
  const X11Connection& x_;
  const xcb_gcontext_t gc_;
};

/// A region's rectangles as requests take them.
std::vector<xcb_rectangle_t> rectanglesOf(const Region& region);

/// A region that the server holds; nothing when it could not be asked for.
std::optional<Region> fetchRegion(const X11Connection& x, xcb_xfixes_region_t region);

}  // namespace lenslark
