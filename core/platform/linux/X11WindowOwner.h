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

  /// A child of the root with what it frames.
  struct Family {
    /// The window itself, and of each other application whose windows lie inside, the outermost
    /// ones: a window manager puts applications' windows into frames of its own.
    std::vector<xcb_window_t> members;
    /// Where windows may be put into the frame: the window and those directly below it.
    std::vector<xcb_window_t> parents;
  };

  /// Its parents tell from before they were looked at when something is put into them.
  Family familyOf(xcb_window_t topLevel) const;

  /// What the owners of these windows are called: base names of executables, and window classes.
  std::vector<std::string> namesOf(const std::vector<xcb_window_t>& windows) const;

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
