#pragma once

#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"

namespace lenslark::X11Repaint {

/// Asks the applications in a window and below it to paint a region, which counts from the window's
/// corner, anew: the server paints their backgrounds there and tells them that it is exposed.
void ask(const X11Connection& x, xcb_window_t window, const Region& region);

}  // namespace lenslark::X11Repaint
