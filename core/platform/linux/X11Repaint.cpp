#include "platform/linux/X11Repaint.h"

#include <vector>

namespace lenslark::X11Repaint {
namespace {

constexpr std::size_t mostWindows = 256;

struct Inner {
  xcb_window_t id;
  int x;  ///< From the outermost window's corner.
  int y;
};

void clear(const X11Connection& x, const Inner& window, Size size, const Region& region) {
  Region part = Region(region).move(-window.x, -window.y);
  part.intersect(Region({0, 0, size.width, size.height}));
  for (const auto& box : part.boxes()) {
    xcb_clear_area(x.get(), 1, window.id, static_cast<std::int16_t>(box.x1),
                   static_cast<std::int16_t>(box.y1), static_cast<std::uint16_t>(box.x2 - box.x1),
                   static_cast<std::uint16_t>(box.y2 - box.y1));
  }
}

}  // namespace

void ask(const X11Connection& x, xcb_window_t window, const Region& region) {
  std::vector<Inner> family{{window, 0, 0}};
  for (std::size_t index = 0; index < family.size(); ++index) {
    const Inner inner = family[index];
    const auto tree = xcb_query_tree(x.get(), inner.id);
    const auto geometry = x.ask(xcb_get_geometry, xcb_get_geometry_reply, inner.id);
    const auto below = x.reply(xcb_query_tree_reply, tree);
    if (!geometry || !below) continue;
    const bool outermost = index == 0;
    const Inner placed{inner.id, outermost ? 0 : inner.x + geometry->x + geometry->border_width,
                       outermost ? 0 : inner.y + geometry->y + geometry->border_width};
    clear(x, placed, {geometry->width, geometry->height}, region);
    const xcb_window_t* children = xcb_query_tree_children(below.get());
    for (int child = 0; child < xcb_query_tree_children_length(below.get()); ++child) {
      if (family.size() < mostWindows) family.push_back({children[child], placed.x, placed.y});
    }
  }
  xcb_flush(x.get());
}

}  // namespace lenslark::X11Repaint
