#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "graphics/Geometry.h"

namespace lenslark {

/// An application of a test's own: windows that fill themselves with one colour and repaint it when
/// they are told to.
class XPainter {
 public:
  XPainter() : connection_(xcb_connect(nullptr, nullptr)) {
    screen_ = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
  }
  ~XPainter() { xcb_disconnect(connection_); }
  XPainter(const XPainter&) = delete;
  XPainter& operator=(const XPainter&) = delete;

  /// A window without decoration in one colour (0xRRGGBB), mapped. The server paints it.
  xcb_window_t window(const PixelRect& frame, std::uint32_t colour, const std::string& title = {}) {
    const xcb_window_t id = xcb_generate_id(connection_);
    const std::uint32_t values[] = {colour, 1};
    xcb_create_window(connection_, XCB_COPY_FROM_PARENT, id, screen_->root,
                      static_cast<std::int16_t>(frame.x), static_cast<std::int16_t>(frame.y),
                      static_cast<std::uint16_t>(frame.width),
                      static_cast<std::uint16_t>(frame.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    setTitle(id, title);
    xcb_map_window(connection_, id);
    sync();
    return id;
  }

  /// How a window differs from one of a single colour.
  struct Look {
    bool background = true;  ///< Without one it shows whatever was there until it is painted.
    int border = 0;
    std::uint32_t borderColour = 0;
    bool alpha = false;    ///< 32 bits deep; colours are 0xAARRGGBB then.
    bool managed = false;  ///< Leaves its place to a window manager.
    xcb_window_t parent = XCB_NONE;
    bool mapped = true;
    std::string title;
  };

  xcb_window_t windowWith(const PixelRect& frame, std::uint32_t colour, const Look& look) {
    const xcb_window_t id = xcb_generate_id(connection_);
    const xcb_visualid_t visual = look.alpha ? alphaVisual() : screen_->root_visual;
    if (look.alpha && colormap_ == XCB_NONE) {
      colormap_ = xcb_generate_id(connection_);
      xcb_create_colormap(connection_, XCB_COLORMAP_ALLOC_NONE, colormap_, screen_->root, visual);
    }
    std::vector<std::uint32_t> values;
    std::uint32_t mask = XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT;
    if (look.background) {
      mask |= XCB_CW_BACK_PIXEL;
      values.push_back(colour);
    }
    values.push_back(look.borderColour);
    values.push_back(look.managed ? 0U : 1U);
    if (look.alpha) {
      mask |= XCB_CW_COLORMAP;
      values.push_back(colormap_);
    }
    xcb_create_window(
        connection_, look.alpha ? std::uint8_t{32} : std::uint8_t{XCB_COPY_FROM_PARENT}, id,
        look.parent == XCB_NONE ? screen_->root : look.parent, static_cast<std::int16_t>(frame.x),
        static_cast<std::int16_t>(frame.y), static_cast<std::uint16_t>(frame.width),
        static_cast<std::uint16_t>(frame.height), static_cast<std::uint16_t>(look.border),
        XCB_WINDOW_CLASS_INPUT_OUTPUT, visual, mask, values.data());
    setTitle(id, look.title);
    if (look.mapped) xcb_map_window(connection_, id);
    sync();
    return id;
  }

  void setClass(xcb_window_t window, const std::string& name) {
    const std::string both = name + '\0' + name + '\0';
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_CLASS,
                        XCB_ATOM_STRING, 8, static_cast<std::uint32_t>(both.size()), both.data());
  }

  void reparent(xcb_window_t window, xcb_window_t parent, int x, int y) {
    xcb_reparent_window(connection_, window, parent, static_cast<std::int16_t>(x),
                        static_cast<std::int16_t>(y));
    sync();
  }

  void fill(xcb_window_t window, const PixelRect& part, std::uint32_t colour) {
    const xcb_gcontext_t gc = xcb_generate_id(connection_);
    xcb_create_gc(connection_, gc, window, XCB_GC_FOREGROUND, &colour);
    const xcb_rectangle_t rect{static_cast<std::int16_t>(part.x), static_cast<std::int16_t>(part.y),
                               static_cast<std::uint16_t>(part.width),
                               static_cast<std::uint16_t>(part.height)};
    xcb_poly_fill_rectangle(connection_, window, gc, 1, &rect);
    xcb_free_gc(connection_, gc);
    sync();
  }

  void move(xcb_window_t window, int x, int y) {
    const std::uint32_t values[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)};
    xcb_configure_window(connection_, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, values);
    sync();
  }

  void resize(xcb_window_t window, int width, int height) {
    const std::uint32_t values[] = {static_cast<std::uint32_t>(width),
                                    static_cast<std::uint32_t>(height)};
    xcb_configure_window(connection_, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                         values);
    sync();
  }

  void raise(xcb_window_t window) {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    xcb_configure_window(connection_, window, XCB_CONFIG_WINDOW_STACK_MODE, &above);
    sync();
  }

  void unmap(xcb_window_t window) {
    xcb_unmap_window(connection_, window);
    sync();
  }

  void map(xcb_window_t window) {
    xcb_map_window(connection_, window);
    sync();
  }

  void destroy(xcb_window_t window) {
    xcb_destroy_window(connection_, window);
    sync();
  }

  void movePointer(int x, int y) {
    xcb_warp_pointer(connection_, XCB_NONE, screen_->root, 0, 0, 0, 0, static_cast<std::int16_t>(x),
                     static_cast<std::int16_t>(y));
    sync();
  }

  void paintRoot(std::uint32_t colour) {
    xcb_change_window_attributes(connection_, screen_->root, XCB_CW_BACK_PIXEL, &colour);
    xcb_clear_area(connection_, 0, screen_->root, 0, 0, 0, 0);
    sync();
  }

  void sync() {
    std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
  }

  xcb_connection_t* get() const noexcept { return connection_; }
  xcb_window_t root() const noexcept { return screen_->root; }

 private:
  void setTitle(xcb_window_t window, const std::string& title) {
    if (title.empty()) return;
    xcb_change_property(connection_, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME,
                        XCB_ATOM_STRING, 8, static_cast<std::uint32_t>(title.size()), title.data());
  }

  xcb_visualid_t alphaVisual() const {
    for (auto depths = xcb_screen_allowed_depths_iterator(screen_); depths.rem > 0;
         xcb_depth_next(&depths)) {
      if (depths.data->depth == 32) return xcb_depth_visuals(depths.data)->visual_id;
    }
    return XCB_NONE;
  }

  xcb_connection_t* connection_;
  xcb_screen_t* screen_;
  xcb_colormap_t colormap_ = XCB_NONE;
};

}  // namespace lenslark
