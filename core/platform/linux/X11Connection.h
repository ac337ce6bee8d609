#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/linux/XcbConnection.h"

namespace lenslark {

/// A connection for capturing: one whose server has the extensions and the pixels for it.
///
/// A lost server shows as `broken` turning true and as empty answers, never as the end of the
/// process. Errors of single requests (a window may go while we look at it) are dropped.
/// **Threads**: one at a time.
class X11Connection : public XcbConnection {
 public:
  /// **Fails** with CaptureError where there is no X server, or one without what is needed.
  X11Connection();

  std::uint8_t damageEvents() const noexcept { return damageEvents_; }
  std::uint8_t xfixesEvents() const noexcept { return xfixesEvents_; }
  std::uint8_t shapeEvents() const noexcept { return shapeEvents_; }
  /// Whether pictures can be exchanged through shared memory, and drawn into there.
  bool hasShm() const noexcept { return hasShm_; }
  bool hasSharedPixmaps() const noexcept { return hasSharedPixmaps_; }

  /// The answer to one request, null when it failed: ask(xcb_query_tree, xcb_query_tree_reply, id).
  template <typename Request, typename Answer, typename... Arguments>
  auto ask(Request request, Answer answer, Arguments... arguments) const {
    return reply(answer, request(get(), arguments...));
  }

  xcb_atom_t atom(const char* name) const { return atoms({name}).front(); }

  /// Waits until the server has done all that was asked of it.
  void sync() const { ask(xcb_get_input_focus, xcb_get_input_focus_reply); }

 private:
  void requireExtensions();

  std::uint8_t damageEvents_ = 0;
  std::uint8_t xfixesEvents_ = 0;
  std::uint8_t shapeEvents_ = 0;
  bool hasShm_ = false;
  bool hasSharedPixmaps_ = false;
};

}  // namespace lenslark
