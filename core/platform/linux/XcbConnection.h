#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace lenslark {

struct FreeReply {
  void operator()(void* reply) const noexcept { std::free(reply); }
};

/// A reply from the server, null when the request failed, for instance because its window is gone.
template <typename Reply>
using XcbReply = std::unique_ptr<Reply, FreeReply>;

/// One connection to the X server.
///
/// Requests are sent through the library's own functions, as many as can be before the first of
/// their replies is waited for: a round trip costs more than all their handling.
///
/// **Threads**: one at a time. Replies are waited for as long as the server takes.
class XcbConnection {
 public:
  /// To the server that $DISPLAY names. **Fails** with CaptureError.
  XcbConnection();

  xcb_connection_t* get() const noexcept { return connection_.get(); }
  const xcb_screen_t& screen() const noexcept { return *screen_; }
  xcb_window_t root() const noexcept { return screen_->root; }

  /// Whether the server has gone, or has closed the connection.
  bool broken() const noexcept { return ::xcb_connection_has_error(get()) != 0; }

  /// Whether the server knows the extension.
  bool has(xcb_extension_t& extension) const noexcept;

  /// What a request's `..._reply` function gives: reply(xcb_get_geometry_reply, cookie).
  template <typename Reply, typename Cookie>
  XcbReply<Reply> reply(Reply* (*function)(xcb_connection_t*, Cookie, xcb_generic_error_t**),
                        Cookie cookie) const noexcept {
    xcb_generic_error_t* error = nullptr;
    XcbReply<Reply> result(function(get(), cookie, &error));
    std::free(error);
    return result;
  }

  /// The atoms of these names, in one round trip.
  std::vector<xcb_atom_t> atoms(const std::vector<const char*>& names) const;

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const noexcept { ::xcb_disconnect(connection); }
  };

  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  const xcb_screen_t* screen_ = nullptr;
};

/// A request for a window's property, and its value when that has the wanted shape.
class XcbProperty {
 public:
  /// Asks for up to `maxBytes` of it.
  XcbProperty(const XcbConnection& connection, xcb_window_t window, xcb_atom_t property,
              std::uint32_t maxBytes);

  /// Waits for the value. To be called once, before the values are asked for.
  void receive();

  xcb_atom_t type() const noexcept {
    return reply_ ? reply_->type : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
  }
  /// Its bytes, empty when it is missing or not made of bytes.
  std::string bytes() const;
  /// Its 32-bit values, empty when it is missing or not made of those.
  std::vector<std::uint32_t> words() const;

 private:
  const XcbConnection& connection_;
  xcb_get_property_cookie_t cookie_;
  XcbReply<xcb_get_property_reply_t> reply_;
};

}  // namespace lenslark
