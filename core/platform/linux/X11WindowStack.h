#pragma once

#include <xcb/damage.h>

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "platform/Screen.h"
#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11TopLevel.h"
#include "platform/linux/X11WindowOwner.h"

namespace lenslark {

/// The root's children, bottom to top, kept up to date by events, each redirected into a backing
/// store of its own so that it has its own pixels however it is covered.
/// **Threads**: one at a time, as its connection.
class X11WindowStack {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// `composited`: whether a compositor has been giving the windows backing stores already.
  X11WindowStack(const X11Connection& x, ExcludedApplications excluded, bool composited);
  ~X11WindowStack();
  X11WindowStack(const X11WindowStack&) = delete;
  X11WindowStack& operator=(const X11WindowStack&) = delete;

  /// Takes an event in. What it changes on the screen is told by `takeChanges`.
  void handle(const xcb_generic_event_t& event);

  /// Lets unknown pixels count as known where the time for painting them is over, and shows windows
  /// again that an excluded one has gone from.
  void settle(Time now);
  /// When `settle` has something to do.
  std::optional<Time> nextSettling() const;

  const std::vector<X11TopLevel>& windows() const noexcept { return windows_; }

  /// The screen's pixels that changed since the last call.
  Region takeChanges() { return std::exchange(dirty_, Region()); }

  /// Has painting told anew from now on: the server tells of each pixel once.
  void expectDamage();

  /// Whether a window that could be seen got a new backing store or new contents since the last
  /// call: what was copied of it meanwhile may be anything.
  bool takeUpheaval() { return std::exchange(upheaval_, false); }

 private:
  using Backed = std::vector<xcb_window_t>;

  void readTree();
  Backed alreadyBacked() const;
  void markCovered(const Backed& backed, bool composited);

  void watch(X11TopLevel& window);
  void unwatch(X11TopLevel& window);
  void tellAnew(X11TopLevel& window) const;
  void renewed(X11TopLevel& window);
  void makeUnknown(X11TopLevel& window, const Region& region, const Region& secret, Time settles);
  Region secretsAt(const X11TopLevel& window) const;
  void rememberSecret(const X11TopLevel& window);
  void changed(const X11TopLevel& window);

  X11TopLevel* find(xcb_window_t id);
  X11TopLevel* findHolder(xcb_window_t id);
  void placeAbove(xcb_window_t id, xcb_window_t sibling);
  void add(xcb_window_t id);
  void remove(xcb_window_t id);
  void appear(X11TopLevel& window);
  void vanish(X11TopLevel& window);
  void configure(const xcb_configure_notify_event_t& event);
  void damaged(const xcb_damage_notify_event_t& event, std::uint32_t sequence);
  void created(const xcb_create_notify_event_t& event);
  void destroyed(const xcb_destroy_notify_event_t& event);
  void reparented(const xcb_reparent_notify_event_t& event);
  void decideAnew(X11TopLevel& window);
  void reshaped(xcb_window_t id);

  const X11Connection& x_;
  const X11WindowOwner owner_;
  const X11TopLevelReader reader_;
  std::vector<X11TopLevel> windows_;
  Region dirty_;
  bool upheaval_ = false;

  /// Where excluded windows were a moment ago: the screen may still show them there.
  std::vector<std::pair<PixelRect, Time>> lately_;
};

}  // namespace lenslark
