#include <fmt/core.h>
#include <xcb/composite.h>
#include <xcb/damage.h>

#include "platform/linux/X11Scene.h"

namespace lenslark {
namespace {

/// A rectangle of one drawable as it is: the root's for a display, or a whole window.
class DrawableScene : public X11Scene {
 public:
  DrawableScene(const X11Connection& x, xcb_window_t drawable, const PixelRect& source)
      : x_(x),
        drawable_(drawable),
        source_(source),
        gc_(xcb_generate_id(x.get())),
        damage_(xcb_generate_id(x.get())) {
    const std::uint32_t values[] = {XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(x.get(), gc_, x.root(), XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES,
                  values);
    xcb_damage_create(x.get(), damage_, drawable, XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
  }
  ~DrawableScene() override {
    xcb_damage_destroy(x_.get(), damage_);
    xcb_free_gc(x_.get(), gc_);
  }

  bool dirty() const override { return dirty_; }

  void handle(const xcb_generic_event_t& event) override {
    if ((event.response_type & 0x7F) != x_.damageEvents() + XCB_DAMAGE_NOTIFY) return;
    const auto& damage = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
    const int right = source_.x + source_.width;
    const int bottom = source_.y + source_.height;
    const auto& box = damage.area;
    if (box.x < right && box.x + box.width > source_.x && box.y < bottom &&
        box.y + box.height > source_.y) {
      dirty_ = true;
    } else {
      xcb_damage_subtract(x_.get(), damage_, XCB_NONE, XCB_NONE);
    }
  }

  void draw(X11Picture& picture, bool) override {
    xcb_damage_subtract(x_.get(), damage_, XCB_NONE, XCB_NONE);
    dirty_ = false;
    xcb_copy_area(x_.get(), drawable_, picture.pixmap(), gc_, static_cast<std::int16_t>(source_.x),
                  static_cast<std::int16_t>(source_.y), 0, 0,
                  static_cast<std::uint16_t>(source_.width),
                  static_cast<std::uint16_t>(source_.height));
  }

 protected:
  const X11Connection& x_;
  const xcb_window_t drawable_;
  PixelRect source_;  ///< In the drawable's own coordinates.
  bool dirty_ = true;

 private:
  const xcb_gcontext_t gc_;
  const xcb_damage_damage_t damage_;
};

class DisplayScene final : public DrawableScene {
 public:
  DisplayScene(const X11Connection& x, const PixelRect& area) : DrawableScene(x, x.root(), area) {}

  PixelRect area() const override { return source_; }
};

/// The child of the root that holds a window.
xcb_window_t topLevelOf(const X11Connection& x, xcb_window_t window) {
  for (;;) {
    const auto tree = x.ask(xcb_query_tree, xcb_query_tree_reply, window);
    if (!tree || tree->parent == x.root() || tree->parent == XCB_NONE) return window;
    window = tree->parent;
  }
}

CaptureError gone(xcb_window_t window) {
  return CaptureError::unavailable(fmt::format("the window {:#x} was closed", window));
}

class WindowScene final : public DrawableScene {
 public:
  WindowScene(const X11Connection& x, xcb_window_t window, Size size)
      : DrawableScene(x, window, {0, 0, size.width, size.height}), top_(topLevelOf(x, window)) {
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(x.get(), window, XCB_CW_EVENT_MASK, &mask);
    // In a backing store of its own it keeps its pixels when it is covered or off the screen.
    xcb_composite_redirect_window(x.get(), top_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    follow();
  }
  ~WindowScene() override {
    xcb_composite_unredirect_window(x_.get(), top_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    xcb_flush(x_.get());
  }

  PixelRect area() const override {
    return {position_.x, position_.y, source_.width, source_.height};
  }

  std::optional<CaptureError> ended() const override {
    if (!closed_) return std::nullopt;
    return gone(drawable_);
  }

  void handle(const xcb_generic_event_t& event) override {
    switch (event.response_type & 0x7F) {
      case XCB_CONFIGURE_NOTIFY: {
        const auto& change = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
        source_.width = change.width;
        source_.height = change.height;
        dirty_ = true;
        follow();
        break;
      }
      case XCB_DESTROY_NOTIFY:
        closed_ = true;
        break;
      default:
        DrawableScene::handle(event);
        break;
    }
  }

 private:
  /// Where the window is on the screen, for the pointer's sake.
  void follow() {
    const auto place = x_.ask(xcb_translate_coordinates, xcb_translate_coordinates_reply, drawable_,
                              x_.root(), std::int16_t{0}, std::int16_t{0});
    if (place) position_ = {place->dst_x, place->dst_y, 0, 0};
  }

  const xcb_window_t top_;
  PixelRect position_;
  bool closed_ = false;
};

}  // namespace

std::unique_ptr<X11Scene> makeDisplayScene(const X11Connection& x, const PixelRect& area) {
  return std::make_unique<DisplayScene>(x, area);
}

std::unique_ptr<X11Scene> makeWindowScene(const X11Connection& x, xcb_window_t window) {
  const auto geometry = x.ask(xcb_get_geometry, xcb_get_geometry_reply, window);
  if (!geometry) throw gone(window);
  return std::make_unique<WindowScene>(x, window, Size{geometry->width, geometry->height});
}

}  // namespace lenslark
