#include "platform/linux/X11Compositing.h"

#include <fmt/core.h>
#include <xcb/xfixes.h>

namespace lenslark {
namespace {

/// Compositors own the selection _NET_WM_CM_S followed by their screen's number (EWMH 1.5).
xcb_atom_t selectionOf(const X11Connection& x) {
  int number = 0;
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(x.get()));
  for (; screens.rem > 0 && screens.data->root != x.root(); xcb_screen_next(&screens)) ++number;
  return x.atom(fmt::format("_NET_WM_CM_S{}", number).c_str());
}

}  // namespace

X11Compositing::X11Compositing(const X11Connection& x) : x_(x), selection_(selectionOf(x)) {
  xcb_xfixes_select_selection_input(x.get(), x.root(), selection_,
                                    XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                        XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
  read();
}

bool X11Compositing::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7F) != x_.xfixesEvents() + XCB_XFIXES_SELECTION_NOTIFY) return false;
  read();
  return true;
}

void X11Compositing::read() {
  const auto owner = x_.ask(xcb_get_selection_owner, xcb_get_selection_owner_reply, selection_);
  active_ = owner && owner->owner != XCB_NONE;
}

}  // namespace lenslark
