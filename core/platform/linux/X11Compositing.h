#pragma once

#include "platform/linux/X11Connection.h"

namespace lenslark {

/// Whether a compositor draws the screen: a program that shows windows translucently where they
/// ask for it. Without one the server ignores their alpha.
/// **Threads**: one at a time, as its connection.
class X11Compositing {
 public:
  explicit X11Compositing(const X11Connection& x);

  bool active() const noexcept { return active_; }

  /// Whether the event says that a compositor came or went.
  bool handle(const xcb_generic_event_t& event);

 private:
  void read();

  const X11Connection& x_;
  const xcb_atom_t selection_;
  bool active_ = false;
};

}  // namespace lenslark
