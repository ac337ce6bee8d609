#include "platform/linux/X11WindowCopier.h"

#include <xcb/composite.h>

#include <algorithm>
#include <span>

namespace lenslark {
namespace {

std::int16_t i16(int value) { return static_cast<std::int16_t>(value); }
std::uint16_t u16(int value) { return static_cast<std::uint16_t>(value); }

using Formats = std::span<const xcb_render_pictforminfo_t>;

bool sameColours(const xcb_render_directformat_t& one, const xcb_render_directformat_t& other) {
  return one.red_shift == other.red_shift && one.red_mask == other.red_mask &&
         one.green_shift == other.green_shift && one.green_mask == other.green_mask &&
         one.blue_shift == other.blue_shift && one.blue_mask == other.blue_mask;
}

/// The format of the same depth and colours without alpha; itself where there is none.
xcb_render_pictformat_t withoutAlpha(xcb_render_pictformat_t id, Formats formats) {
  const auto own = std::ranges::find(formats, id, &xcb_render_pictforminfo_t::id);
  if (own == formats.end()) return id;
  const auto opaque = std::ranges::find_if(formats, [&](const auto& other) {
    return other.type == own->type && other.depth == own->depth && other.direct.alpha_mask == 0 &&
           sameColours(other.direct, own->direct);
  });
  return opaque == formats.end() ? id : opaque->id;
}

}  // namespace

X11WindowCopier::X11WindowCopier(const X11Connection& x)
    : x_(x), copy_(x), black_(xcb_generate_id(x.get())) {
  const std::uint32_t colour = 0;
  xcb_create_gc(x.get(), black_, x.root(), XCB_GC_FOREGROUND, &colour);
  readFormats();
}

X11WindowCopier::~X11WindowCopier() {
  forget();
  xcb_free_gc(x_.get(), black_);
}

void X11WindowCopier::forget() {
  for (const auto& [drawable, picture] : pictures_) xcb_render_free_picture(x_.get(), picture);
  for (const auto& [window, store] : stores_) xcb_free_pixmap(x_.get(), store);
  pictures_.clear();
  stores_.clear();
}

void X11WindowCopier::readFormats() {
  const auto answer = x_.ask(xcb_render_query_pict_formats, xcb_render_query_pict_formats_reply);
  if (!answer) return;
  const Formats all(
      xcb_render_query_pict_formats_formats(answer.get()),
      static_cast<std::size_t>(xcb_render_query_pict_formats_formats_length(answer.get())));
  for (auto screens = xcb_render_query_pict_formats_screens_iterator(answer.get()); screens.rem > 0;
       xcb_render_pictscreen_next(&screens)) {
    for (auto depths = xcb_render_pictscreen_depths_iterator(screens.data); depths.rem > 0;
         xcb_render_pictdepth_next(&depths)) {
      const xcb_render_pictvisual_t* visuals = xcb_render_pictdepth_visuals(depths.data);
      for (int index = 0; index < xcb_render_pictdepth_visuals_length(depths.data); ++index) {
        const xcb_render_pictformat_t own = visuals[index].format;
        formats_[visuals[index].visual] = {own, withoutAlpha(own, all)};
      }
    }
  }
}

bool X11WindowCopier::hasAlpha(const X11TopLevel& window) const {
  const auto format = formats_.find(window.visual);
  return window.depth != x_.screen().root_depth && format != formats_.end() &&
         format->second.own != format->second.opaque;
}

/// A window with a border is copied out of its store, the only place that shows the border as well.
X11WindowCopier::Source X11WindowCopier::sourceOf(const X11TopLevel& window) {
  if (window.border == 0) return {window.id, 0};
  const auto known = stores_.find(window.id);
  if (known != stores_.end()) return {known->second, window.border};
  const xcb_pixmap_t store = xcb_generate_id(x_.get());
  xcb_composite_name_window_pixmap(x_.get(), window.id, store);
  stores_[window.id] = store;
  return {store, window.border};
}

xcb_render_picture_t X11WindowCopier::pictureOf(xcb_drawable_t drawable,
                                                xcb_render_pictformat_t format) {
  const auto known = pictures_.find(drawable);
  if (known != pictures_.end()) return known->second;
  const xcb_render_picture_t picture = xcb_generate_id(x_.get());
  const std::uint32_t children = XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS;
  xcb_render_create_picture(x_.get(), picture, drawable, format, XCB_RENDER_CP_SUBWINDOW_MODE,
                            &children);
  return pictures_[drawable] = picture;
}

void X11WindowCopier::copy(const X11TopLevel& window, const X11Picture& target,
                           const Region& region, const PixelRect& area, bool translucent) {
  if (region.empty()) return;
  const bool alike = window.depth == x_.screen().root_depth;
  const auto format = formats_.find(window.visual);
  if (!alike && format == formats_.end()) return black(target, region, area);
  const Source source = sourceOf(window);
  if (alike) {
    return copy_.copy(source.drawable, target.pixmap(), Region(region).move(-area.x, -area.y),
                      area.x - window.frame.x + source.border,
                      area.y - window.frame.y + source.border);
  }
  const auto& [own, opaque] = format->second;
  for (const auto& box : region.boxes()) {
    const std::int16_t fromX = i16(box.x1 - window.frame.x + source.border);
    const std::int16_t fromY = i16(box.y1 - window.frame.y + source.border);
    const std::int16_t toX = i16(box.x1 - area.x);
    const std::int16_t toY = i16(box.y1 - area.y);
    const std::uint16_t width = u16(box.x2 - box.x1);
    const std::uint16_t height = u16(box.y2 - box.y1);
    xcb_render_composite(x_.get(), translucent ? XCB_RENDER_PICT_OP_OVER : XCB_RENDER_PICT_OP_SRC,
                         pictureOf(source.drawable, translucent ? own : opaque),
                         XCB_RENDER_PICTURE_NONE,
                         pictureOf(target.pixmap(), formats_.at(x_.screen().root_visual).own),
                         fromX, fromY, 0, 0, toX, toY, width, height);
  }
}

void X11WindowCopier::black(const X11Picture& target, const Region& region, const PixelRect& area) {
  if (region.empty()) return;
  const auto parts = rectanglesOf(Region(region).move(-area.x, -area.y));
  xcb_poly_fill_rectangle(x_.get(), target.pixmap(), black_,
                          static_cast<std::uint32_t>(parts.size()), parts.data());
}

}  // namespace lenslark
