#pragma once

#include <xcb/damage.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/Screen.h"
#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11WindowOwner.h"

namespace lenslark {

/// One child of the root as the picture needs it. Regions count from the window's corner, without
/// its border.
struct X11TopLevel {
  xcb_window_t id = 0;
  PixelRect frame;  ///< On the screen, without the border.
  int border = 0;
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
  bool drawable = false;  ///< Has pixels at all: no input-only window.
  bool mapped = false;
  bool excluded = true;              ///< Until it is known whose it is.
  Region shape;                      ///< With the border.
  std::vector<xcb_window_t> family;  ///< It and all in it: others' windows may be put into any.

  xcb_damage_damage_t damage = 0;
  /// The request from which on it tells of painting. What it tells before may be that the server
  /// has given the window a store, or that it was asked for.
  std::uint32_t tellsFrom = 0;
  bool damaged = false;  ///< Since painting was last expected.

  /// What its backing store holds is not its own yet: where it was covered when the store was
  /// made, the server filled in the covering window's pixels. They count as unknown until the
  /// application has painted there, or has had the time to.
  Region unknown;
  /// The part of those that may show an excluded window. No time makes them known; when it is
  /// over, the application is asked to paint there.
  Region secret;
  /// When that time is over; of an excluded window, when it is looked at again.
  std::optional<std::chrono::steady_clock::time_point> settles;
};

/// All of it from its own corner, with the border.
PixelRect outer(const X11TopLevel& window);
PixelRect outerOnScreen(const X11TopLevel& window);
/// What it covers on the screen, with the border.
Region onScreen(const X11TopLevel& window);

/// Asks the server what a child of the root is like, and decides whether it is left out.
/// **Threads**: one at a time, as its connection.
class X11TopLevelReader {
 public:
  /// Connection and owner must outlive the reader.
  X11TopLevelReader(const X11Connection& x, const X11WindowOwner& owner,
                    ExcludedApplications excluded);

  /// As it is now; from now on the server tells when its shape changes.
  X11TopLevel describe(xcb_window_t id) const;
  void readShape(X11TopLevel& window) const;
  /// Whose it is, and whether that one is excluded. What is not on the screen may become anybody's:
  /// it is decided when it appears.
  void decide(X11TopLevel& window) const;

 private:
  const X11Connection& x_;
  const X11WindowOwner& owner_;
  const ExcludedApplications excluded_;
};

}  // namespace lenslark
