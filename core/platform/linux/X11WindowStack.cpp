#include "platform/linux/X11WindowStack.h"

#include <xcb/composite.h>
#include <xcb/shape.h>

#include <algorithm>
#include <utility>

#include "platform/linux/X11Repaint.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Applications repaint within this time what they were told is exposed.
constexpr auto paintingTime = 200ms;
/// The same for a window that is being resized or has just appeared: it paints anyway, and is asked
/// only for what it painted before this was looked for.
constexpr auto repaintingTime = 60ms;
/// A window manager takes the frame of a window that has gone away within this time.
constexpr auto vanishingTime = 500ms;
/// The screen follows a window that has moved or gone within this time.
constexpr auto afterimageTime = 1s;

template <typename Event>
const Event& as(const xcb_generic_event_t& event) {
  return reinterpret_cast<const Event&>(event);
}

/// Keeps all other clients of the server waiting.
class ServerGrab {
 public:
  explicit ServerGrab(const X11Connection& x) : x_(x) { xcb_grab_server(x.get()); }
  ~ServerGrab() {
    xcb_ungrab_server(x_.get());
    xcb_flush(x_.get());
  }
  ServerGrab(const ServerGrab&) = delete;
  ServerGrab& operator=(const ServerGrab&) = delete;

 private:
  const X11Connection& x_;
};

}  // namespace

X11WindowStack::X11WindowStack(const X11Connection& x, ExcludedApplications excluded,
                               bool composited)
    : x_(x), owner_(x), reader_(x, owner_, std::move(excluded)) {
  // One mask serves a connection: properties and the root's size are the background's affair.
  const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                             XCB_EVENT_MASK_PROPERTY_CHANGE;
  {
    // Nobody may move anything between the tree that is read and the stores that are made.
    const ServerGrab grab(x);
    xcb_change_window_attributes(x.get(), x.root(), XCB_CW_EVENT_MASK, &mask);
    readTree();
    const Backed backed = alreadyBacked();
    // Before the stores are made: the server paints what comes to light then, and tells of it.
    for (X11TopLevel& window : windows_) watch(window);
    markCovered(backed, composited);
    xcb_composite_redirect_subwindows(x.get(), x.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }
  x_.sync();
}

X11WindowStack::~X11WindowStack() {
  xcb_composite_unredirect_subwindows(x_.get(), x_.root(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  for (X11TopLevel& window : windows_) unwatch(window);
  xcb_flush(x_.get());
}

void X11WindowStack::readTree() {
  const auto tree = x_.ask(xcb_query_tree, xcb_query_tree_reply, x_.root());
  if (!tree) return;
  const xcb_window_t* children = xcb_query_tree_children(tree.get());
  for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
    windows_.push_back(reader_.describe(children[index]));
  }
}

/// The windows that have stores since before; only such a one's can be named.
X11WindowStack::Backed X11WindowStack::alreadyBacked() const {
  std::vector<std::pair<xcb_window_t, xcb_void_cookie_t>> attempts;
  const xcb_pixmap_t store = xcb_generate_id(x_.get());
  for (const X11TopLevel& window : windows_) {
    if (!window.mapped || !window.drawable) continue;
    attempts.emplace_back(window.id,
                          xcb_composite_name_window_pixmap_checked(x_.get(), window.id, store));
    xcb_free_pixmap(x_.get(), store);
  }
  Backed backed;
  for (const auto& [window, cookie] : attempts) {
    const XcbReply<xcb_generic_error_t> error(xcb_request_check(x_.get(), cookie));
    if (!error) backed.push_back(window);
  }
  return backed;
}

void X11WindowStack::markCovered(const Backed& backed, bool composited) {
  Region above;
  for (auto window = windows_.rbegin(); window != windows_.rend(); ++window) {
    if (!window->mapped || !window->drawable) continue;
    if (!window->excluded) {
      const Region covered = Region(above).move(-window->frame.x, -window->frame.y);
      const Region secret = secretsAt(*window);
      const bool hadStore = std::ranges::find(backed, window->id) != backed.end();
      if (!hadStore) {
        makeUnknown(*window, covered, secret, Clock::now() + paintingTime);
      } else if (!composited) {
        // Another film's: how long ago it began is not known, and nobody sees the window repaint
        // where an excluded one covers it.
        makeUnknown(*window, secret, secret, Clock::now());
      }
    }
    above.add(onScreen(*window));
  }
}

void X11WindowStack::makeUnknown(X11TopLevel& window, const Region& region, const Region& secret,
                                 Time settles) {
  const Region whole(outer(window));
  window.unknown.add(region).add(secret).intersect(whole);
  window.secret.add(secret).intersect(whole);
  if (!window.unknown.empty()) window.settles = settles;
}

/// Where excluded windows are, or were a moment ago, as seen from a window's corner.
Region X11WindowStack::secretsAt(const X11TopLevel& window) const {
  Region secrets;
  const auto oldest = Clock::now() - afterimageTime;
  for (const X11TopLevel& other : windows_) {
    if (other.mapped && other.drawable && other.excluded) secrets.add(Region(outerOnScreen(other)));
  }
  for (const auto& [rect, time] : lately_) {
    if (time >= oldest) secrets.add(Region(rect));
  }
  return secrets.move(-window.frame.x, -window.frame.y).intersect(Region(outer(window)));
}

void X11WindowStack::rememberSecret(const X11TopLevel& window) {
  if (!window.mapped || !window.drawable || !window.excluded) return;
  const auto now = Clock::now();
  std::erase_if(lately_, [&](const auto& entry) { return entry.second < now - afterimageTime; });
  lately_.emplace_back(outerOnScreen(window), now);
}

void X11WindowStack::watch(X11TopLevel& window) {
  // What is not on the screen yet is watched as well, so that no painting of it goes unseen.
  if (!window.drawable || window.damage != 0 || owner_.isServersOwn(window.id)) return;
  if (window.mapped && window.excluded) return;
  window.damage = xcb_generate_id(x_.get());
  xcb_damage_create(x_.get(), window.damage, window.id, XCB_DAMAGE_REPORT_LEVEL_DELTA_RECTANGLES);
  tellAnew(window);
  changed(window);
}

void X11WindowStack::tellAnew(X11TopLevel& window) const {
  if (window.damage == 0) return;
  window.tellsFrom = xcb_damage_subtract(x_.get(), window.damage, XCB_NONE, XCB_NONE).sequence;
}

void X11WindowStack::unwatch(X11TopLevel& window) {
  if (window.damage != 0) xcb_damage_destroy(x_.get(), std::exchange(window.damage, 0));
}

void X11WindowStack::changed(const X11TopLevel& window) {
  if (window.mapped && window.drawable) dirty_.add(onScreen(window));
}

/// The window has a new backing store, which begins with what was on the screen at its place.
void X11WindowStack::renewed(X11TopLevel& window) {
  upheaval_ = true;
  window.unknown = window.secret = Region();
  const Region secret = secretsAt(window);
  makeUnknown(window, secret, secret, Clock::now() + repaintingTime);
  tellAnew(window);
}

X11TopLevel* X11WindowStack::find(xcb_window_t id) {
  const auto found = std::ranges::find(windows_, id, &X11TopLevel::id);
  return found == windows_.end() ? nullptr : &*found;
}

X11TopLevel* X11WindowStack::findHolder(xcb_window_t id) {
  const auto found = std::ranges::find_if(windows_, [id](const X11TopLevel& window) {
    return std::ranges::find(window.family, id) != window.family.end();
  });
  return found == windows_.end() ? nullptr : &*found;
}

void X11WindowStack::appear(X11TopLevel& window) {
  X11TopLevel fresh = reader_.describe(window.id);
  fresh.damage = window.damage;
  fresh.tellsFrom = window.tellsFrom;
  fresh.damaged = window.damaged;
  window = std::move(fresh);
  if (window.excluded) {
    unwatch(window);
  } else {
    renewed(window);
    watch(window);
  }
  changed(window);
}

void X11WindowStack::vanish(X11TopLevel& window) {
  changed(window);
  rememberSecret(window);
  window.mapped = false;
  window.excluded = true;
  window.unknown = window.secret = Region();
  window.settles.reset();
  tellAnew(window);
}

void X11WindowStack::add(xcb_window_t id) {
  if (find(id) != nullptr) return;
  windows_.push_back(reader_.describe(id));
  if (windows_.back().mapped) {
    appear(windows_.back());
  } else {
    watch(windows_.back());
  }
}

void X11WindowStack::remove(xcb_window_t id) {
  X11TopLevel* window = find(id);
  if (window == nullptr) return;
  vanish(*window);
  unwatch(*window);
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
  rememberSecret(*window);
  const PixelRect before = outer(*window);
  window->border = event.border_width;
  window->frame = {event.x + window->border, event.y + window->border, event.width, event.height};
  if (outer(*window) != before) {
    reader_.readShape(*window);
    if (window->mapped && !window->excluded) renewed(*window);
  }
  changed(*window);
  placeAbove(event.window, event.above_sibling);
}

void X11WindowStack::damaged(const xcb_damage_notify_event_t& event, std::uint32_t sequence) {
  X11TopLevel* window = find(event.drawable);
  if (window == nullptr || window->damage != event.damage) return;
  window->damaged = true;
  const Region area({event.area.x, event.area.y, event.area.width, event.area.height});
  if (static_cast<std::int32_t>(sequence - window->tellsFrom) >= 0) {
    window->unknown.subtract(area);
    window->secret.subtract(area);
  }
  if (window->mapped) dirty_.add(Region(area).move(window->frame.x, window->frame.y));
}

void X11WindowStack::created(const xcb_create_notify_event_t& event) {
  if (event.parent == x_.root()) return add(event.window);
  X11TopLevel* const holder = findHolder(event.parent);
  if (holder == nullptr || !holder->mapped || holder->excluded) return;
  // What is put into the new window must not be missed, nor what already was.
  const X11WindowOwner::Family inner = owner_.familyOf(event.window);
  if (inner.members.size() > 1 || !owner_.sameOwner(event.window, event.parent)) {
    return decideAnew(*holder);
  }
  holder->family.insert(holder->family.end(), inner.all.begin(), inner.all.end());
}

void X11WindowStack::destroyed(const xcb_destroy_notify_event_t& event) {
  if (event.event == x_.root()) return remove(event.window);
  X11TopLevel* const holder = findHolder(event.event);
  if (holder == nullptr) return;
  std::erase(holder->family, event.window);
  if (holder->mapped && holder->excluded) holder->settles = Clock::now() + vanishingTime;
}

void X11WindowStack::reparented(const xcb_reparent_notify_event_t& event) {
  if (event.event == x_.root()) {
    return event.parent == x_.root() ? add(event.window) : remove(event.window);
  }
  if (X11TopLevel* const holder = findHolder(event.event)) decideAnew(*holder);
}

/// What lies in the window has changed.
void X11WindowStack::decideAnew(X11TopLevel& window) {
  const bool wasExcluded = window.excluded;
  rememberSecret(window);
  reader_.decide(window);
  if (!window.mapped || (!wasExcluded && !window.excluded)) return;
  upheaval_ = true;
  if (window.excluded) {
    unwatch(window);
  } else {
    // It still shows what it held.
    watch(window);
    makeUnknown(window, window.shape, window.shape, Clock::now() + repaintingTime);
  }
  changed(window);
}

void X11WindowStack::reshaped(xcb_window_t id) {
  X11TopLevel* const window = find(id);
  if (window == nullptr) return;
  changed(*window);
  reader_.readShape(*window);
  changed(*window);
}

void X11WindowStack::handle(const xcb_generic_event_t& event) {
  const int type = event.response_type & 0x7F;
  if (type == x_.damageEvents() + XCB_DAMAGE_NOTIFY) {
    return damaged(as<xcb_damage_notify_event_t>(event), event.full_sequence);
  }
  if (type == x_.shapeEvents() + XCB_SHAPE_NOTIFY) {
    return reshaped(as<xcb_shape_notify_event_t>(event).affected_window);
  }
  switch (type) {
    case XCB_CREATE_NOTIFY:
      created(as<xcb_create_notify_event_t>(event));
      break;
    case XCB_DESTROY_NOTIFY:
      destroyed(as<xcb_destroy_notify_event_t>(event));
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

void X11WindowStack::settle(Time now) {
  for (X11TopLevel& window : windows_) {
    if (!window.settles || now < *window.settles) continue;
    window.settles.reset();
    if (window.excluded) {
      decideAnew(window);
      continue;
    }
    const Region known = std::exchange(window.unknown, window.secret).subtract(window.secret);
    if (window.mapped) dirty_.add(Region(known).move(window.frame.x, window.frame.y));
    if (window.secret.empty()) continue;
    tellAnew(window);
    X11Repaint::ask(x_, window.id, window.secret);
  }
}

std::optional<X11WindowStack::Time> X11WindowStack::nextSettling() const {
  std::optional<Time> next;
  for (const X11TopLevel& window : windows_) {
    if (window.settles && (!next || *window.settles < *next)) next = window.settles;
  }
  return next;
}

void X11WindowStack::expectDamage() {
  for (X11TopLevel& window : windows_) {
    if (window.damage == 0 || !window.damaged) continue;
    xcb_damage_subtract(x_.get(), window.damage, XCB_NONE, XCB_NONE);
    window.damaged = false;
  }
}

}  // namespace lenslark
