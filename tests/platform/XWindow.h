#pragma once

#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace lenslark {

/// An application of a test: one connection to the X server.
class XClient {
 public:
  XClient() : connection_(xcb_connect(nullptr, nullptr)) {
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
  }
  ~XClient() { xcb_disconnect(connection_); }
  XClient(const XClient&) = delete;
  XClient& operator=(const XClient&) = delete;

  xcb_connection_t* connection() const noexcept { return connection_; }
  xcb_window_t root() const noexcept { return root_; }

  xcb_atom_t atom(const char* name) const {
    const auto cookie =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    auto* reply = xcb_intern_atom_reply(connection_, cookie, nullptr);
    const xcb_atom_t atom = reply->atom;
    std::free(reply);
    return atom;
  }

  /// Waits until the server has done all that was asked.
  void sync() const {
    std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
  }

 private:
  xcb_connection_t* connection_;
  xcb_window_t root_;
};

/// A window of a test's application.
class XWindow {
 public:
  struct Place {
    std::int16_t x = 0;
    std::int16_t y = 0;
    std::uint16_t width = 200;
    std::uint16_t height = 150;
    std::uint16_t border = 0;
    bool placesItself = false;
  };

  XWindow(const XClient& client, const Place& place, xcb_window_t parent = XCB_WINDOW_NONE)
      : client_(client), id_(xcb_generate_id(client.connection())) {
    const std::uint32_t values[] = {place.placesItself ? 1U : 0U};
    xcb_create_window(client.connection(), XCB_COPY_FROM_PARENT, id_,
                      parent == XCB_WINDOW_NONE ? client.root() : parent, place.x, place.y,
                      place.width, place.height, place.border, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT, values);
  }
  ~XWindow() {
    xcb_destroy_window(client_.connection(), id_);
    client_.sync();
  }
  XWindow(const XWindow&) = delete;
  XWindow& operator=(const XWindow&) = delete;

  xcb_window_t id() const noexcept { return id_; }

  void set(const char* property, const char* type, std::string_view bytes) const {
    xcb_change_property(client_.connection(), XCB_PROP_MODE_REPLACE, id_, client_.atom(property),
                        client_.atom(type), 8, static_cast<std::uint32_t>(bytes.size()),
                        bytes.data());
  }
  void set(const char* property, const char* type, const std::vector<std::uint32_t>& words) const {
    xcb_change_property(client_.connection(), XCB_PROP_MODE_REPLACE, id_, client_.atom(property),
                        client_.atom(type), 32, static_cast<std::uint32_t>(words.size()),
                        words.data());
  }
  void map() const {
    xcb_map_window(client_.connection(), id_);
    client_.sync();
  }
  void unmap() const {
    xcb_unmap_window(client_.connection(), id_);
    client_.sync();
  }

 private:
  const XClient& client_;
  const xcb_window_t id_;
};

}  // namespace lenslark
