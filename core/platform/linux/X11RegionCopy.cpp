#include "platform/linux/X11RegionCopy.h"

namespace lenslark {
namespace {

std::int16_t i16(int value) { return static_cast<std::int16_t>(value); }
std::uint16_t u16(int value) { return static_cast<std::uint16_t>(value); }

}  // namespace

X11RegionCopy::X11RegionCopy(const X11Connection& x) : x_(x), gc_(xcb_generate_id(x.get())) {
  const std::uint32_t values[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
  xcb_create_gc(x.get(), gc_, x.root(), XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, values);
}

X11RegionCopy::~X11RegionCopy() { xcb_free_gc(x_.get(), gc_); }

void X11RegionCopy::copy(xcb_drawable_t from, xcb_drawable_t to, const Region& region, int x,
                         int y) const {
  if (region.empty()) return;
  const auto parts = rectanglesOf(region);
  xcb_set_clip_rectangles(x_.get(), XCB_CLIP_ORDERING_YX_BANDED, gc_, 0, 0,
                          static_cast<std::uint32_t>(parts.size()), parts.data());
  const PixelRect all = region.extents();
  xcb_copy_area(x_.get(), from, to, gc_, i16(all.x + x), i16(all.y + y), i16(all.x), i16(all.y),
                u16(all.width), u16(all.height));
}

std::vector<xcb_rectangle_t> rectanglesOf(const Region& region) {
  std::vector<xcb_rectangle_t> rectangles;
  rectangles.reserve(region.boxes().size());
  for (const auto& box : region.boxes()) {
    rectangles.push_back({i16(box.x1), i16(box.y1), u16(box.x2 - box.x1), u16(box.y2 - box.y1)});
  }
  return rectangles;
}

std::optional<Region> fetchRegion(const X11Connection& x, xcb_xfixes_region_t region) {
  const auto answer = x.ask(xcb_xfixes_fetch_region, xcb_xfixes_fetch_region_reply, region);
  if (!answer) return std::nullopt;
  Region fetched;
  const xcb_rectangle_t* rects = xcb_xfixes_fetch_region_rectangles(answer.get());
  for (int index = 0; index < xcb_xfixes_fetch_region_rectangles_length(answer.get()); ++index) {
    fetched.add(Region({rects[index].x, rects[index].y, rects[index].width, rects[index].height}));
  }
  return fetched;
}

}  // namespace lenslark
