#include "platform/linux/XcbConnection.h"

#include <X11/Xauth.h>

#include <cstring>

#include "platform/Screen.h"

namespace lenslark {
namespace {

const xcb_screen_t* screenNumber(xcb_connection_t* connection, int number) {
  auto screen = ::xcb_setup_roots_iterator(::xcb_get_setup(connection));
  for (; screen.rem > 0 && number > 0; --number) ::xcb_screen_next(&screen);
  return screen.rem > 0 ? screen.data : nullptr;
}

/// The first call allocates the name that all calls share, and is not safe beside others: two
/// streams that connected at once might write it into memory that is free.
void allocateAuthorityFileName() {
  [[maybe_unused]] static const char* const name = ::XauFileName();
}

}  // namespace

XcbConnection::XcbConnection() {
  const char* display = std::getenv("DISPLAY");
  if (display == nullptr || *display == '\0') {
    throw CaptureError::unavailable(
        std::getenv("WAYLAND_DISPLAY") != nullptr
            ? "Wayland tells nobody where windows are and leaves none out of a picture; log in to "
              "an X11 session for it."
            : "there is no X display ($DISPLAY is not set).");
  }
  allocateAuthorityFileName();
  int number = 0;
  connection_.reset(::xcb_connect(nullptr, &number));
  if (!broken()) screen_ = screenNumber(get(), number);
  if (screen_ == nullptr) {
    throw CaptureError::unavailable("the X display " + std::string(display) +
                                    " cannot be reached.");
  }
}

bool XcbConnection::has(xcb_extension_t& extension) const noexcept {
  const auto* data = ::xcb_get_extension_data(get(), &extension);
  return data != nullptr && data->present != 0;
}

std::vector<xcb_atom_t> XcbConnection::atoms(const std::vector<const char*>& names) const {
  std::vector<xcb_intern_atom_cookie_t> cookies;
  for (const char* name : names) {
    cookies.push_back(
        ::xcb_intern_atom(get(), 0, static_cast<std::uint16_t>(std::strlen(name)), name));
  }
  std::vector<xcb_atom_t> atoms;
  for (const auto cookie : cookies) {
    const auto atom = reply(::xcb_intern_atom_reply, cookie);
    atoms.push_back(atom ? atom->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE));
  }
  return atoms;
}

XcbProperty::XcbProperty(const XcbConnection& connection, xcb_window_t window, xcb_atom_t property,
                         std::uint32_t maxBytes)
    : connection_(connection),
      cookie_(::xcb_get_property(connection.get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY,
                                 0, maxBytes / 4)) {}

void XcbProperty::receive() { reply_ = connection_.reply(::xcb_get_property_reply, cookie_); }

std::string XcbProperty::bytes() const {
  if (!reply_ || reply_->format != 8) return {};
  return {static_cast<const char*>(::xcb_get_property_value(reply_.get())),
          static_cast<std::size_t>(::xcb_get_property_value_length(reply_.get()))};
}

std::vector<std::uint32_t> XcbProperty::words() const {
  if (!reply_ || reply_->format != 32) return {};
  std::vector<std::uint32_t> words(
      static_cast<std::size_t>(::xcb_get_property_value_length(reply_.get())) / 4);
  if (words.empty()) return words;
  std::memcpy(words.data(), ::xcb_get_property_value(reply_.get()), words.size() * 4);
  return words;
}

}  // namespace lenslark
