#include "platform/linux/XcbFollower.h"

#include "platform/linux/XcbTree.h"
#include "platform/linux/XcbWindows.h"

namespace lenslark {
namespace {

constexpr int deepestNesting = 8;

Rect outerRect(int x, int y, int width, int height, int border) {
  return {static_cast<double>(x), static_cast<double>(y), static_cast<double>(width + 2 * border),
          static_cast<double>(height + 2 * border)};
}

}  // namespace

XcbFollower::XcbFollower(xcb_window_t window) : atoms_(connection_), window_(window) {
  // Before anything is asked for, so that nothing changes unnoticed between the two.
  select();
  displays_ = XcbWindows::displays(connection_);
  bounds_ = XcbTree::frames(connection_, atoms_, {window_}).front();
  const auto geometry =
      connection_.reply(xcb_get_geometry_reply, xcb_get_geometry(connection_.get(), topLevel_));
  if (geometry) {
    outer_ = outerRect(geometry->x, geometry->y, geometry->width, geometry->height,
                       geometry->border_width);
  }
}

/// The window and all that it lies in: any of them may be moved, or put elsewhere.
void XcbFollower::select() {
  const auto watch = [this](xcb_window_t window, std::uint32_t mask) {
    xcb_change_window_attributes(connection_.get(), window, XCB_CW_EVENT_MASK, &mask);
  };
  // The root is configured, if only to what it is already, whenever monitors change.
  watch(connection_.root(), XCB_EVENT_MASK_STRUCTURE_NOTIFY);
  xcb_window_t window = window_;
  for (int depth = 0; depth < deepestNesting; ++depth) {
    watch(window, XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE);
    const auto tree =
        connection_.reply(xcb_query_tree_reply, xcb_query_tree(connection_.get(), window));
    if (!tree) return;
    topLevel_ = window;
    if (tree->parent == connection_.root()) return;
    window = tree->parent;
  }
}

bool XcbFollower::upToDate() {
  while (const XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(connection_.get())}) {
    if (!take(*event)) outdated_ = true;
  }
  return !outdated_ && bounds_ && outer_ && !connection_.broken();
}

bool XcbFollower::take(const xcb_generic_event_t& event) {
  constexpr int sentByClients = 0x80;
  if ((event.response_type & sentByClients) != 0) return true;
  switch (event.response_type) {
    case XCB_CONFIGURE_NOTIFY: {
      const auto& change = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
      if (change.window == connection_.root()) return false;
      if (change.window != topLevel_) return true;
      moved(outerRect(change.x, change.y, change.width, change.height, change.border_width));
      return true;
    }
    case XCB_PROPERTY_NOTIFY:
      return reinterpret_cast<const xcb_property_notify_event_t&>(event).atom !=
             atoms_.gtkFrameExtents;
    case XCB_REPARENT_NOTIFY:
    case XCB_DESTROY_NOTIFY:
      return false;
    default:
      return true;
  }
}

/// The shadow around the window, if any, keeps its width.
void XcbFollower::moved(const Rect& outer) {
  if (bounds_ && outer_) {
    bounds_->x += outer.x - outer_->x;
    bounds_->y += outer.y - outer_->y;
    bounds_->width += outer.width - outer_->width;
    bounds_->height += outer.height - outer_->height;
  }
  outer_ = outer;
}

}  // namespace lenslark
