#pragma once

#include <vector>

#include "platform/Screen.h"
#include "platform/linux/XcbAtoms.h"
#include "platform/linux/XcbConnection.h"

/// Describes an X server's monitors and windows.
namespace lenslark::XcbWindows {

/// The monitors in the server's own order; where it knows of none, the whole screen. A display's
/// id is the atom of its name.
std::vector<DisplayInfo> displays(const XcbConnection& connection);

/// The clients that are mapped, from the front to the back. On screen is what is neither hidden by
/// its window manager nor on another desktop.
std::vector<WindowInfo> list(const XcbConnection& connection, const XcbAtoms& atoms);

}  // namespace lenslark::XcbWindows
