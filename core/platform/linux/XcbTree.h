#pragma once

#include <optional>
#include <vector>

#include "graphics/Geometry.h"
#include "platform/linux/XcbAtoms.h"
#include "platform/linux/XcbConnection.h"

/// The tree of windows: which of them are clients, and which frames lie around those.
///
/// Window managers put most clients into frames of their own, so that what a user takes for one
/// window is a child of the root with the client somewhere inside.
namespace lenslark::XcbTree {

/// The clients from the back to the front: as the window manager lists them, else as they lie in
/// the tree, without windows that place themselves (menus, tool tips).
std::vector<xcb_window_t> clients(const XcbConnection& connection, const XcbAtoms& atoms);

/// The rectangle of each window with its frame, without the shadow that it draws itself; nothing
/// for one that is gone.
std::vector<std::optional<Rect>> frames(const XcbConnection& connection, const XcbAtoms& atoms,
                                        const std::vector<xcb_window_t>& windows);

}  // namespace lenslark::XcbTree
