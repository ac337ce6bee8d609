#pragma once

#include <xcb/damage.h>
#include <xcb/render.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Screen.h"
#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11WindowOwner.h"

namespace lenslark {

/// One child of the root as the picture needs it.
struct X11TopLevel {
  xcb_window_t id = 0;
  PixelRect frame;  ///< On the screen, without the border.
  int border = 0;
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
  bool drawable = false;  ///< Has pixels at all: no input-only window.
  bool mapped = false;
  bool excluded = true;  ///< Until it is known whose it is.
  xcb_damage_damage_t damage = 0;
  Region shape;  ///< From the window's corner.

  /// What its backing store holds is not its own yet, from the window's corner: where it was
  /// covered when the store was made, the server filled in the covering window's pixels. They
  /// count as unknown until the application has painted there, or has had the time to.
  Region unknown;
  std::chrono::steady_clock::time_point knownFrom;
};

/// The root's children, bottom to top, kept up to date by events, each redirected into a backing
/// store of its own so that it has its own pixels however it is covered.
/// **Threads**: one at a time, as its connection.
class X11WindowStack {
 public:
  X11WindowStack(const X11Connection& x, ExcludedApplications excluded);
  ~X11WindowStack();
  X11WindowStack(const X11WindowStack&) = delete;
  X11WindowStack& operator=(const X11WindowStack&) = delete;

  /// Takes an event in. What it changes on the screen is told by `takeChanges`.
  void handle(const xcb_generic_event_t& event);

  /// Lets unknown pixels count as known where the time for painting them is over.
  void settle(std::chrono::steady_clock::time_point now);
  /// When `settle` has something to do.
  std::optional<std::chrono::steady_clock::time_point> nextSettling() const;

  const std::vector<X11TopLevel>& windows() const noexcept { return windows_; }

  /// The screen's pixels that changed since the last call.
  Region takeChanges() { return std::exchange(dirty_, Region()); }

  /// Has painting told anew from now on: the server tells of each pixel once.
  void expectDamage();

 private:
  void readTree();
  X11TopLevel describe(xcb_window_t id) const;
  bool isExcluded(xcb_window_t topLevel) const;
  void markCovered();
  void watch(X11TopLevel& window);
  void appear(X11TopLevel& window);
  void vanish(X11TopLevel& window);
  void setUnknown(X11TopLevel& window, const Region& region);
  void readShape(X11TopLevel& window) const;
  void changed(const X11TopLevel& window);
  void placeAbove(xcb_window_t id, xcb_window_t sibling);
  X11TopLevel* find(xcb_window_t id);
  void configure(const xcb_configure_notify_event_t& event);
  void damaged(const xcb_damage_notify_event_t& event);
  void reparented(const xcb_reparent_notify_event_t& event);
  void add(xcb_window_t id);
  void remove(xcb_window_t id);

  const X11Connection& x_;
  const ExcludedApplications excluded_;
  const X11WindowOwner owner_;
  std::vector<X11TopLevel> windows_;
  Region dirty_;
};

}  // namespace lenslark
