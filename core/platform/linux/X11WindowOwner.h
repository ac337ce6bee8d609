#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/X11Connection.h"

namespace lenslark {

/// Finds out whose windows those are.
/// **Threads**: one at a time, as its connection.
class X11WindowOwner {
 public:
  explicit X11WindowOwner(const X11Connection& x);

  /// A window with all that lies in it: a window manager puts applications' windows into frames
  /// of its own, and applications put others' windows into theirs.
  struct Family {
    /// The window itself, and the outermost ones of each other application inside.
    std::vector<xcb_window_t> members;
    /// All of them: where windows may be put into it.
    std::vector<xcb_window_t> all;
  };

  /// They tell from before they were looked at when something is put into them.
  Family familyOf(xcb_window_t window) const;

  /// What the owners of these windows are called: base names of executables, and window classes.
  std::vector<std::string> namesOf(const std::vector<xcb_window_t>& windows) const;

  /// Whether one application made both.
  bool sameOwner(xcb_window_t one, xcb_window_t other) const noexcept {
    return clientOf(one) == clientOf(other);
  }

  /// Whether the server made the window for itself: a compositor's overlay is one.
  bool isServersOwn(xcb_window_t window) const noexcept;

 private:
  pid_t processOf(xcb_window_t window) const;
  xcb_window_t clientOf(xcb_window_t window) const noexcept;

  const X11Connection& x_;
  const xcb_atom_t netWmPid_;
  const bool hasResources_;
};

}  // namespace lenslark
