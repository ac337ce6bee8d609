#include "platform/linux/X11WindowStack.h"

#include <xcb/composite.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <utility>

namespace lenslark {
namespace {

using namespace std::chrono_literals;

/// Applications repaint within this time what they were told is exposed.
constexpr auto paintingTime = 200ms;

template <typename Event>
const Event& as(const xcb_generic_event_t& event) {
  return reinterpret_cast<const Event&>(event);
}

PixelRect whole(const X11TopLevel& window) {
  return {0, 0, window.frame.width, window.frame.height};
}

Region onScreen(const X11TopLevel& window) {
  return Region(window.shape).move(window.frame.x, window.frame.y);
}

}  // namespace

X11WindowStack::X11WindowStack(const X11Connection& x, ExcludedApplications excluded)
    : x_(x), excluded_(std::move(excluded)), owner_(x) {
  // One mask serves a connection: properties are the background's affair.
  const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
  // Nobody may move anything between the events that are asked for and the tree that is read.
  xcb_grab_server(x.get());
  xcb_change_window_attributes(x.get(), x.root(), XCB_CW_EVENT_MASK, &mask);
  readTree();
  markCovered();
  xcb_composite_redirect_subwindows(x.get(), x.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  xcb_ungrab_server(x.get());
  for (X11TopLevel& window : windows_) watch(window);
  x_.sync();
}

X11WindowStack::~X11WindowStack() {
  xcb_composite_unredirect_subwindows(x_.get(), x_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  for (X11TopLevel& window : windows_) {
    if (window.damage != 0) xcb_damage_destroy(x_.get(), window.damage);
  }
  xcb_flush(x_.get());
}

void X11WindowStack::readTree() {
  const auto tree = x_.ask(xcb_query_tree, xcb_query_tree_reply, x_.root());
  if (!tree) return;
  const xcb_window_t* children = xcb_query_tree_children(tree.get());
  for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
    windows_.push_back(describe(children[index]));
  }
}

X11TopLevel X11WindowStack::describe(xcb_window_t id) const {
  X11TopLevel window;
  window.id = id;
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
  window.excluded = !window.drawable || (window.mapped && isExcluded(id));
  return window;
}

bool X11WindowStack::isExcluded(xcb_window_t topLevel) const {
  const auto listed = [this](xcb_window_t window) {
    return std::ranges::find(excluded_.windows, window) != excluded_.windows.end();
  };
  if (listed(topLevel)) return true;
  return std::ranges::any_of(owner_.clients(topLevel), [&](xcb_window_t client) {
    if (listed(client)) return true;
    const std::string application = owner_.applicationOf(client);
    return std::ranges::any_of(excluded_.namePrefixes, [&](const std::string& prefix) {
      return application.starts_with(prefix);
    });
  });
}

void X11WindowStack::readShape(X11TopLevel& window) const {
  window.shape = Region(whole(window));
  const xcb_xfixes_region_t region = xcb_generate_id(x_.get());
  xcb_xfixes_create_region_from_window(x_.get(), region, window.id, XCB_SHAPE_SK_BOUNDING);
  const auto answer = x_.ask(xcb_xfixes_fetch_region, xcb_xfixes_fetch_region_reply, region);
  xcb_xfixes_destroy_region(x_.get(), region);
  if (!answer) return;
  Region shape;
  const xcb_rectangle_t* rects = xcb_xfixes_fetch_region_rectangles(answer.get());
  for (int index = 0; index < xcb_xfixes_fetch_region_rectangles_length(answer.get()); ++index) {
    shape.add(Region({rects[index].x, rects[index].y, rects[index].width, rects[index].height}));
  }
  window.shape.intersect(shape);
}

void X11WindowStack::markCovered() {
  Region above;
  for (auto window = windows_.rbegin(); window != windows_.rend(); ++window) {
    if (!window->mapped || !window->drawable) continue;
    setUnknown(*window, Region(above).move(-window->frame.x, -window->frame.y));
    above.add(onScreen(*window));
  }
}

void X11WindowStack::setUnknown(X11TopLevel& window, const Region& region) {
  window.unknown.add(Region(region).intersect(Region(whole(window))));
  window.knownFrom = std::chrono::steady_clock::now() + paintingTime;
}

void X11WindowStack::watch(X11TopLevel& window) {
  if (!window.drawable) return;
  // A window manager may put another application's window into a frame that is on the screen.
  const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
  xcb_change_window_attributes(x_.get(), window.id, XCB_CW_EVENT_MASK, &mask);
  if (window.excluded || !window.mapped || window.damage != 0) return;
  window.damage = xcb_generate_id(x_.get());
  xcb_damage_create(x_.get(), window.damage, window.id, XCB_DAMAGE_REPORT_LEVEL_DELTA_RECTANGLES);
  changed(window);
}

void X11WindowStack::changed(const X11TopLevel& window) {
  if (window.mapped && window.drawable) dirty_.add(onScreen(window));
}

void X11WindowStack::appear(X11TopLevel& window) {
  window = [&] {
    X11TopLevel fresh = describe(window.id);
    fresh.damage = window.damage;
    return fresh;
  }();
  // The new backing store begins with what was on the screen at its place.
  setUnknown(window, Region(whole(window)));
  watch(window);
  changed(window);
}

void X11WindowStack::vanish(X11TopLevel& window) {
  changed(window);
  window.mapped = false;
  window.excluded = true;
  if (window.damage != 0) xcb_damage_destroy(x_.get(), std::exchange(window.damage, 0));
}

X11TopLevel* X11WindowStack::find(xcb_window_t id) {
  const auto found = std::ranges::find(windows_, id, &X11TopLevel::id);
  return found == windows_.end() ? nullptr : &*found;
}

void X11WindowStack::add(xcb_window_t id) {
  if (find(id) != nullptr) return;
  windows_.push_back(describe(id));
  if (windows_.back().mapped) appear(windows_.back());
}

void X11WindowStack::remove(xcb_window_t id) {
  X11TopLevel* window = find(id);
  if (window == nullptr) return;
  vanish(*window);
  std::erase_if(windows_, [id](const X11TopLevel& other) { return other.id == id; });
}

void X11WindowStack::placeAbove(xcb_window_t id, xcb_window_t sibling) {
  X11TopLevel* window = find(id);
  if (window == nullptr) return;
  X11TopLevel moved = std::move(*window);
  std::erase_if(windows_, [id](const X11TopLevel& other) { return other.id == id; });
  auto place = windows_.begin();
  if (sibling != XCB_NONE) {
    place = std::ranges::find(windows_, sibling, &X11TopLevel::id);
    if (place != windows_.end()) ++place;
  }
  windows_.insert(place, std::move(moved));
}

void X11WindowStack::configure(const xcb_configure_notify_event_t& event) {
  X11TopLevel* window = find(event.window);
  if (window == nullptr) return;
  changed(*window);
  const Region before(whole(*window));
  const Size sizeBefore = window->frame.size();
  window->border = event.border_width;
  window->frame = {event.x + window->border, event.y + window->border, event.width, event.height};
  if (window->frame.size() != sizeBefore) {
    readShape(*window);
    window->unknown.intersect(Region(whole(*window)));
    if (window->mapped) setUnknown(*window, Region(whole(*window)).subtract(before));
  }
  changed(*window);
  placeAbove(event.window, event.above_sibling);
}

void X11WindowStack::damaged(const xcb_damage_notify_event_t& event) {
  X11TopLevel* window = find(event.drawable);
  if (window == nullptr || window->damage != event.damage) return;
  const Region area({event.area.x, event.area.y, event.area.width, event.area.height});
  window->unknown.subtract(area);
  dirty_.add(Region(area).move(window->frame.x, window->frame.y));
}

void X11WindowStack::reparented(const xcb_reparent_notify_event_t& event) {
  if (event.parent == x_.root()) {
    add(event.window);
  } else if (event.event == x_.root()) {
    remove(event.window);
  } else if (X11TopLevel* frame = find(event.event); frame != nullptr && frame->mapped) {
    vanish(*frame);
    appear(*frame);
  }
}

void X11WindowStack::handle(const xcb_generic_event_t& event) {
  const int type = event.response_type & 0x7F;
  if (type == x_.damageEvents() + XCB_DAMAGE_NOTIFY) {
    return damaged(as<xcb_damage_notify_event_t>(event));
  }
  switch (type) {
    case XCB_CREATE_NOTIFY:
      if (const auto& created = as<xcb_create_notify_event_t>(event); created.parent == x_.root()) {
        add(created.window);
      }
      break;
    case XCB_DESTROY_NOTIFY:
      remove(as<xcb_destroy_notify_event_t>(event).window);
      break;
    case XCB_MAP_NOTIFY:
      if (X11TopLevel* window = find(as<xcb_map_notify_event_t>(event).window)) appear(*window);
      break;
    case XCB_UNMAP_NOTIFY:
      if (X11TopLevel* window = find(as<xcb_unmap_notify_event_t>(event).window)) vanish(*window);
      break;
    case XCB_CONFIGURE_NOTIFY:
      configure(as<xcb_configure_notify_event_t>(event));
      break;
    case XCB_CIRCULATE_NOTIFY: {
      const auto& circulated = as<xcb_circulate_notify_event_t>(event);
      const bool toTop = circulated.place == XCB_PLACE_ON_TOP;
      if (X11TopLevel* window = find(circulated.window)) changed(*window);
      placeAbove(circulated.window, toTop && !windows_.empty() ? windows_.back().id : XCB_NONE);
      break;
    }
    case XCB_REPARENT_NOTIFY:
      reparented(as<xcb_reparent_notify_event_t>(event));
      break;
    default:
      break;
  }
}

void X11WindowStack::settle(std::chrono::steady_clock::time_point now) {
  for (X11TopLevel& window : windows_) {
    if (window.unknown.empty() || now < window.knownFrom) continue;
    window.unknown = Region();
    changed(window);
  }
}

std::optional<std::chrono::steady_clock::time_point> X11WindowStack::nextSettling() const {
  std::optional<std::chrono::steady_clock::time_point> next;
  for (const X11TopLevel& window : windows_) {
    if (window.unknown.empty() || !window.mapped || window.excluded) continue;
    if (!next || window.knownFrom < *next) next = window.knownFrom;
  }
  return next;
}

void X11WindowStack::expectDamage() {
  for (const X11TopLevel& window : windows_) {
    if (window.damage != 0) xcb_damage_subtract(x_.get(), window.damage, XCB_NONE, XCB_NONE);
  }
}

}  // namespace lenslark
