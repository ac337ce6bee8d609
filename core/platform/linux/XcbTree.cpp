#include "platform/linux/XcbTree.h"

#include <algorithm>

namespace lenslark::XcbTree {
namespace {

/// More than any session shows; what a list claims beyond that is not read.
constexpr std::uint32_t mostWindows = 4096;
/// Frames nest once or twice.
constexpr int deepestNesting = 8;

using Windows = std::vector<xcb_window_t>;

std::vector<xcb_query_tree_cookie_t> askTrees(const XcbConnection& connection,
                                              const Windows& windows) {
  std::vector<xcb_query_tree_cookie_t> cookies;
  for (const auto window : windows) {
    cookies.push_back(::xcb_query_tree(connection.get(), window));
  }
  return cookies;
}

Windows children(const xcb_query_tree_reply_t* tree) {
  if (tree == nullptr) return {};
  const xcb_window_t* first = ::xcb_query_tree_children(tree);
  const auto count = std::min(mostWindows, std::uint32_t{tree->children_len});
  return {first, first + count};
}

std::vector<Windows> childrenOf(const XcbConnection& connection, const Windows& parents) {
  std::vector<Windows> result;
  for (const auto cookie : askTrees(connection, parents)) {
    result.push_back(children(connection.reply(::xcb_query_tree_reply, cookie).get()));
  }
  return result;
}

/// The child of the root above each window (itself, if it is one), in as many round trips as
/// windows are nested; none for a window that is gone.
Windows topLevels(const XcbConnection& connection, Windows windows) {
  std::vector<bool> found(windows.size(), false);
  for (int depth = 0; depth < deepestNesting; ++depth) {
    const auto cookies = askTrees(connection, windows);
    for (std::size_t index = 0; index < windows.size(); ++index) {
      const auto tree = connection.reply(::xcb_query_tree_reply, cookies[index]);
      if (found[index]) continue;
      found[index] = tree && tree->parent == connection.root();
      if (!found[index]) {
        windows[index] = tree ? tree->parent : static_cast<xcb_window_t>(XCB_WINDOW_NONE);
      }
    }
    if (std::find(found.begin(), found.end(), false) == found.end()) break;
  }
  return windows;
}

/// Whether the window manager that put its name on the root is still there. The list of one that
/// has gone stays behind, and grows stale.
bool windowManagerRuns(const XcbConnection& connection, const XcbAtoms& atoms) {
  XcbProperty onRoot(connection, connection.root(), atoms.supportingCheck, 4);
  onRoot.receive();
  const auto check = onRoot.words();
  if (check.empty()) return false;
  XcbProperty onItself(connection, check.front(), atoms.supportingCheck, 4);
  onItself.receive();
  return onItself.words() == check;
}

Windows managedClients(const XcbConnection& connection, const XcbAtoms& atoms) {
  if (!windowManagerRuns(connection, atoms)) return {};
  XcbProperty list(connection, connection.root(), atoms.clientListStacking, 4 * mostWindows);
  list.receive();
  return list.words();
}

/// Which of the windows a window manager has taken into its care.
std::vector<bool> areManaged(const XcbConnection& connection, const XcbAtoms& atoms,
                             const Windows& windows) {
  std::vector<XcbProperty> states;
  states.reserve(windows.size());
  for (const auto window : windows) states.emplace_back(connection, window, atoms.wmState, 8);
  std::vector<bool> managed;
  for (auto& state : states) {
    state.receive();
    managed.push_back(state.type() != XCB_ATOM_NONE);
  }
  return managed;
}

std::vector<bool> placeThemselves(const XcbConnection& connection, const Windows& windows) {
  std::vector<xcb_get_window_attributes_cookie_t> cookies;
  for (const auto window : windows) {
    cookies.push_back(::xcb_get_window_attributes(connection.get(), window));
  }
  std::vector<bool> result;
  for (const auto cookie : cookies) {
    const auto attributes = connection.reply(::xcb_get_window_attributes_reply, cookie);
    result.push_back(!attributes || attributes->override_redirect != 0);
  }
  return result;
}

/// A window, and which of the frames it lies in.
struct Inside {
  xcb_window_t window;
  std::size_t frame;
};

std::vector<Inside> oneLevelDown(const XcbConnection& connection,
                                 const std::vector<Inside>& level) {
  Windows parents;
  for (const Inside& parent : level) parents.push_back(parent.window);
  const auto below = childrenOf(connection, parents);
  std::vector<Inside> next;
  for (std::size_t index = 0; index < level.size(); ++index) {
    for (const auto child : below[index]) next.push_back({child, level[index].frame});
  }
  return next;
}

/// The managed window inside each of the frames, itself included; none where there is none.
Windows managedInside(const XcbConnection& connection, const XcbAtoms& atoms,
                      const Windows& frames) {
  constexpr int levels = 3;
  Windows clients(frames.size(), XCB_WINDOW_NONE);
  std::vector<Inside> level;
  for (std::size_t index = 0; index < frames.size(); ++index) {
    level.push_back({frames[index], index});
  }
  for (int depth = 0; depth < levels && !level.empty(); ++depth) {
    if (depth > 0) level = oneLevelDown(connection, level);
    Windows windows;
    for (const Inside& inside : level) windows.push_back(inside.window);
    const auto managed = areManaged(connection, atoms, windows);
    for (std::size_t index = 0; index < level.size(); ++index) {
      if (managed[index]) clients[level[index].frame] = level[index].window;
    }
    std::erase_if(level,
                  [&](const Inside& inside) { return clients[inside.frame] != XCB_WINDOW_NONE; });
  }
  return clients;
}

/// Without a window manager that lists them: the root's children, or what is managed inside.
Windows clientsInTree(const XcbConnection& connection, const XcbAtoms& atoms) {
  const Windows topLevel = childrenOf(connection, {connection.root()}).front();
  const auto selfPlaced = placeThemselves(connection, topLevel);
  const Windows managed = managedInside(connection, atoms, topLevel);
  Windows clients;
  for (std::size_t index = 0; index < topLevel.size(); ++index) {
    if (managed[index] != XCB_WINDOW_NONE) {
      clients.push_back(managed[index]);
    } else if (!selfPlaced[index]) {
      clients.push_back(topLevel[index]);
    }
  }
  return clients;
}

Rect outerRect(const xcb_get_geometry_reply_t& geometry) {
  const int borders = 2 * geometry.border_width;
  return {static_cast<double>(geometry.x), static_cast<double>(geometry.y),
          static_cast<double>(geometry.width + borders),
          static_cast<double>(geometry.height + borders)};
}

/// `extents` are the widths at the left, right, top and bottom.
Rect withoutShadow(const Rect& rect, const std::vector<std::uint32_t>& extents) {
  if (extents.size() != 4) return rect;
  const Rect inner{rect.x + extents[0], rect.y + extents[2],
                   rect.width - static_cast<double>(extents[0]) - extents[1],
                   rect.height - static_cast<double>(extents[2]) - extents[3]};
  return inner.empty() ? rect : inner;
}

}  // namespace

Windows clients(const XcbConnection& connection, const XcbAtoms& atoms) {
  const Windows managed = managedClients(connection, atoms);
  return managed.empty() ? clientsInTree(connection, atoms) : managed;
}

std::vector<std::optional<Rect>> frames(const XcbConnection& connection, const XcbAtoms& atoms,
                                        const Windows& windows) {
  std::vector<XcbProperty> shadows;
  shadows.reserve(windows.size());
  for (const auto window : windows) {
    shadows.emplace_back(connection, window, atoms.gtkFrameExtents, 16);
  }
  std::vector<xcb_get_geometry_cookie_t> geometries;
  for (const auto window : topLevels(connection, windows)) {
    geometries.push_back(::xcb_get_geometry(connection.get(), window));
  }
  std::vector<std::optional<Rect>> result;
  for (std::size_t index = 0; index < windows.size(); ++index) {
    shadows[index].receive();
    const auto geometry = connection.reply(::xcb_get_geometry_reply, geometries[index]);
    result.push_back(
        geometry ? std::optional(withoutShadow(outerRect(*geometry), shadows[index].words()))
                 : std::nullopt);
  }
  return result;
}

}  // namespace lenslark::XcbTree
