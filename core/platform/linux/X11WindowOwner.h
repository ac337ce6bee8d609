#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/X11Connection.h"

namespace lenslark {

/// Finds out whose window it is.
/// **Threads**: one at a time, as its connection.
class X11WindowOwner {
 public:
  explicit X11WindowOwner(const X11Connection& x);

  /// The applications' own windows inside a child of the root: a window manager puts them into
  /// frames of its own and marks them with WM_STATE. The window itself where there is none.
  std::vector<xcb_window_t> clients(xcb_window_t topLevel) const;

  /// The process that made a window: as the server knows it, else as the window says; 0 if unknown.
  pid_t processOf(xcb_window_t window) const;

  /// The base name of the process's executable, else the window's class; empty if unknown.
  std::string applicationOf(xcb_window_t window) const;

 private:
  bool hasState(xcb_window_t window) const;
  void collectClients(xcb_window_t window, int depth, std::vector<xcb_window_t>& found) const;
  std::string classOf(xcb_window_t window) const;

  const X11Connection& x_;
  const xcb_atom_t wmState_;
  const xcb_atom_t netWmPid_;
  const bool hasResources_;
};

}  // namespace lenslark
