#include "platform/linux/X11Background.h"

#include <xcb/composite.h>

#include <cstring>

namespace lenslark {

X11Background::X11Background(const X11Connection& x)
    : x_(x),
      copy_(x),
      rootPixmapAtom_(x.atom("_XROOTPMAP_ID")),
      holder_(xcb_generate_id(x.get())),
      window_(xcb_generate_id(x.get())),
      gc_(xcb_generate_id(x.get())) {
  const std::uint32_t values[] = {0, 0};
  xcb_create_gc(x.get(), gc_, x.root(), XCB_GC_FOREGROUND | XCB_GC_GRAPHICS_EXPOSURES, values);
  makeWindow();
  readRootPixmap();
}

X11Background::~X11Background() {
  xcb_destroy_window(x_.get(), holder_);
  xcb_free_gc(x_.get(), gc_);
  xcb_flush(x_.get());
}

void X11Background::makeWindow() {
  const auto make = [this](xcb_window_t window, xcb_window_t parent, std::int16_t corner,
                           Size size) {
    const std::uint32_t values[] = {XCB_BACK_PIXMAP_PARENT_RELATIVE, 1};
    xcb_create_window(x_.get(), XCB_COPY_FROM_PARENT, window, parent, corner, corner,
                      static_cast<std::uint16_t>(size.width),
                      static_cast<std::uint16_t>(size.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXMAP | XCB_CW_OVERRIDE_REDIRECT, values);
  };
  make(holder_, x_.root(), -1, {1, 1});
  make(window_, holder_, 1, {x_.screen().width_in_pixels, x_.screen().height_in_pixels});
  // Redirected by hand it is drawn into its store and never onto the screen.
  xcb_composite_redirect_window(x_.get(), window_, XCB_COMPOSITE_REDIRECT_MANUAL);
  xcb_map_window(x_.get(), window_);
  xcb_map_window(x_.get(), holder_);
}

void X11Background::readRootPixmap() {
  rootPixmap_ = XCB_NONE;
  const auto property = x_.ask(xcb_get_property, xcb_get_property_reply, std::uint8_t{0}, x_.root(),
                               rootPixmapAtom_, xcb_atom_t{XCB_ATOM_PIXMAP}, 0U, 1U);
  if (!property || xcb_get_property_value_length(property.get()) < 4) return;
  xcb_pixmap_t pixmap = XCB_NONE;
  std::memcpy(&pixmap, xcb_get_property_value(property.get()), sizeof pixmap);
  const auto geometry = x_.ask(xcb_get_geometry, xcb_get_geometry_reply, pixmap);
  if (geometry && geometry->depth == x_.screen().root_depth) rootPixmap_ = pixmap;
}

bool X11Background::handle(const xcb_generic_event_t& event) {
  const int type = event.response_type & 0x7F;
  if (type == XCB_CONFIGURE_NOTIFY) {
    const auto& change = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
    if (change.window != x_.root()) return false;
    const std::uint32_t size[] = {change.width, change.height};
    xcb_configure_window(x_.get(), window_, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         size);
    return true;
  }
  if (type != XCB_PROPERTY_NOTIFY) return false;
  const auto& property = reinterpret_cast<const xcb_property_notify_event_t&>(event);
  if (property.window != x_.root() || property.atom != rootPixmapAtom_) return false;
  readRootPixmap();
  return true;
}

void X11Background::paint(const X11Picture& target, const Region& region, const PixelRect& area) {
  if (region.empty()) return;
  const Region wanted = Region(region).move(-area.x, -area.y);
  // The root may have got another background since.
  for (const auto& rect : rectanglesOf(region)) {
    xcb_clear_area(x_.get(), 0, window_, rect.x, rect.y, rect.width, rect.height);
  }
  copy_.copy(window_, target.pixmap(), wanted, area.x, area.y);
  if (rootPixmap_ == XCB_NONE) return;
  const std::uint32_t tiled[] = {XCB_FILL_STYLE_TILED, rootPixmap_,
                                 static_cast<std::uint32_t>(-area.x),
                                 static_cast<std::uint32_t>(-area.y)};
  xcb_change_gc(
      x_.get(), gc_,
      XCB_GC_FILL_STYLE | XCB_GC_TILE | XCB_GC_TILE_STIPPLE_ORIGIN_X | XCB_GC_TILE_STIPPLE_ORIGIN_Y,
      tiled);
  const auto parts = rectanglesOf(wanted);
  xcb_poly_fill_rectangle(x_.get(), target.pixmap(), gc_, static_cast<std::uint32_t>(parts.size()),
                          parts.data());
}

}  // namespace lenslark
