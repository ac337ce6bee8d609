#include "platform/linux/X11TopLevel.h"

#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <utility>

#include "platform/linux/X11RegionCopy.h"

namespace lenslark {

PixelRect outer(const X11TopLevel& window) {
  const int border = window.border;
  return {-border, -border, window.frame.width + 2 * border, window.frame.height + 2 * border};
}

PixelRect outerOnScreen(const X11TopLevel& window) {
  PixelRect rect = outer(window);
  rect.x += window.frame.x;
  rect.y += window.frame.y;
  return rect;
}

Region onScreen(const X11TopLevel& window) {
  return Region(window.shape).move(window.frame.x, window.frame.y);
}

X11TopLevelReader::X11TopLevelReader(const X11Connection& x, const X11WindowOwner& owner,
                                     ExcludedApplications excluded)
    : x_(x), owner_(owner), excluded_(std::move(excluded)) {}

X11TopLevel X11TopLevelReader::describe(xcb_window_t id) const {
  X11TopLevel window;
  window.id = id;
  xcb_shape_select_input(x_.get(), id, 1);
  const auto attributes = x_.ask(xcb_get_window_attributes, xcb_get_window_attributes_reply, id);
  const auto geometry = x_.ask(xcb_get_geometry, xcb_get_geometry_reply, id);
  if (!attributes || !geometry) return window;
  window.border = geometry->border_width;
  window.frame = {geometry->x + window.border, geometry->y + window.border, geometry->width,
                  geometry->height};
  window.depth = geometry->depth;
  window.visual = attributes->visual;
  window.drawable = attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
  window.mapped = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
  readShape(window);
  decide(window);
  return window;
}

void X11TopLevelReader::readShape(X11TopLevel& window) const {
  window.shape = Region(outer(window));
  const xcb_xfixes_region_t region = xcb_generate_id(x_.get());
  xcb_xfixes_create_region_from_window(x_.get(), region, window.id, XCB_SHAPE_SK_BOUNDING);
  const auto shape = fetchRegion(x_, region);
  xcb_xfixes_destroy_region(x_.get(), region);
  if (shape) window.shape.intersect(*shape);
}

void X11TopLevelReader::decide(X11TopLevel& window) const {
  window.excluded = true;
  if (!window.drawable || owner_.isServersOwn(window.id)) return;
  X11WindowOwner::Family family = owner_.familyOf(window.id);
  window.family = std::move(family.all);
  if (!window.mapped) return;
  const auto listed = [this](xcb_window_t member) {
    return std::ranges::find(excluded_.windows, member) != excluded_.windows.end();
  };
  if (std::ranges::any_of(window.family, listed)) return;
  if (excluded_.namePrefixes.empty()) {
    window.excluded = false;
    return;
  }
  window.excluded =
      std::ranges::any_of(owner_.namesOf(family.members), [this](const std::string& name) {
        return std::ranges::any_of(excluded_.namePrefixes, [&](const std::string& prefix) {
          return name.starts_with(prefix);
        });
      });
}

}  // namespace lenslark
