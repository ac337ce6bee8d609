#include <fmt/core.h>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/linux/X11RegionCopy.h"
#include "platform/linux/X11Scene.h"
#include "platform/linux/XcbWindows.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A rectangle of one drawable as it is: the root's for a display, or a whole window.
class DrawableScene : public X11Scene {
 public:
  DrawableScene(const X11Connection& x, xcb_window_t drawable, const PixelRect& source)
      : x_(x),
        drawable_(drawable),
        source_(source),
        copy_(x),
        damage_(xcb_generate_id(x.get())),
        changed_(xcb_generate_id(x.get())) {
    xcb_xfixes_create_region(x.get(), changed_, 0, nullptr);
    xcb_damage_create(x.get(), damage_, drawable, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
  }
  ~DrawableScene() override {
    xcb_damage_destroy(x_.get(), damage_);
    xcb_xfixes_destroy_region(x_.get(), changed_);
  }

  bool dirty() const override { return dirty_; }

  void handle(const xcb_generic_event_t& event) override {
    if ((event.response_type & 0x7F) == x_.damageEvents() + XCB_DAMAGE_NOTIFY) dirty_ = true;
  }

  Region draw(X11Picture& picture, bool all) override {
    dirty_ = false;
    const Region whole({0, 0, source_.width, source_.height});
    const Region changed = takeChanged().move(-source_.x, -source_.y).intersect(whole);
    const Region& wanted = all ? whole : changed;
    copy_.copy(drawable_, picture.pixmap(), wanted, source_.x, source_.y);
    return wanted;
  }

 protected:
  const X11Connection& x_;
  const xcb_window_t drawable_;
  PixelRect source_;  ///< In the drawable's own coordinates.
  bool dirty_ = true;

 private:
  /// What was painted since the last time; the server tells of it anew from now on.
  Region takeChanged() const {
    xcb_damage_subtract(x_.get(), damage_, XCB_NONE, changed_);
    return fetchRegion(x_, changed_).value_or(Region());
  }

  const X11RegionCopy copy_;
  const xcb_damage_damage_t damage_;
  const xcb_xfixes_region_t changed_;
};

CaptureError takenAway() { return CaptureError::unavailable("the display was taken away."); }

std::optional<PixelRect> areaOf(const X11Connection& x, std::uint32_t display) {
  const auto displays = XcbWindows::displays(x);
  const auto found = std::ranges::find(displays, display, &DisplayInfo::id);
  if (found == displays.end()) return std::nullopt;
  const auto whole = [](double value) { return static_cast<int>(std::lround(value)); };
  const Rect& frame = found->frame;
  return PixelRect{whole(frame.x), whole(frame.y), whole(frame.width), whole(frame.height)};
}

class DisplayScene final : public DrawableScene {
 public:
  DisplayScene(const X11Connection& x, std::uint32_t display, const PixelRect& area)
      : DrawableScene(x, x.root(), area), display_(display) {
    // The root is configured, if only to what it is already, whenever monitors change.
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(x.get(), x.root(), XCB_CW_EVENT_MASK, &mask);
    follow();
  }

  PixelRect area() const override { return source_; }

  std::optional<CaptureError> ended() const override {
    if (!gone_) return std::nullopt;
    return takenAway();
  }

  void handle(const xcb_generic_event_t& event) override {
    if ((event.response_type & 0x7F) == XCB_CONFIGURE_NOTIFY) return follow();
    DrawableScene::handle(event);
  }

  Region draw(X11Picture& picture, bool all) override {
    return DrawableScene::draw(picture, std::exchange(moved_, false) || all);
  }

 private:
  void follow() {
    const auto area = areaOf(x_, display_);
    gone_ = !area;
    if (!area || *area == source_) return;
    source_ = *area;
    dirty_ = moved_ = true;
  }

  const std::uint32_t display_;
  bool gone_ = false;
  bool moved_ = false;
};

CaptureError gone(xcb_window_t window) {
  return CaptureError::unavailable(fmt::format("the window {:#x} was closed.", window));
}

class WindowScene final : public DrawableScene {
 public:
  WindowScene(const X11Connection& x, xcb_window_t window, Size size)
      : DrawableScene(x, window, {0, 0, size.width, size.height}) {
    const std::uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(x.get(), window, XCB_CW_EVENT_MASK, &mask);
    const auto attributes =
        x.ask(xcb_get_window_attributes, xcb_get_window_attributes_reply, window);
    mapped_ = attributes && attributes->map_state != XCB_MAP_STATE_UNMAPPED;
    keepPixels();
    followPosition();
  }
  ~WindowScene() override {
    release();
    xcb_flush(x_.get());
  }

  PixelRect area() const override {
    return {position_.x, position_.y, source_.width, source_.height};
  }

  std::optional<CaptureError> ended() const override {
    if (!closed_) return std::nullopt;
    return gone(drawable_);
  }

  bool ready() const override { return mapped_ && !readyFrom_; }
  std::optional<Time> nextWork() const override { return readyFrom_; }
  void work(Time now) override {
    if (readyFrom_ && now >= *readyFrom_) readyFrom_.reset();
  }

  void handle(const xcb_generic_event_t& event) override {
    switch (event.response_type & 0x7F) {
      case XCB_CONFIGURE_NOTIFY: {
        const auto& change = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
        if (Size{change.width, change.height} != source_.size()) dirty_ = true;
        source_.width = change.width;
        source_.height = change.height;
        followPosition();
        break;
      }
      case XCB_REPARENT_NOTIFY:
        release();
        keepPixels();
        followPosition();
        break;
      case XCB_MAP_NOTIFY:
        mapped_ = true;
        waitForPainting();
        dirty_ = true;
        break;
      case XCB_UNMAP_NOTIFY:
        mapped_ = false;
        break;
      case XCB_DESTROY_NOTIFY:
        closed_ = true;
        break;
      default:
        DrawableScene::handle(event);
        break;
    }
  }

 private:
  /// The child of the root that holds the window.
  xcb_window_t topLevel() const {
    xcb_window_t window = drawable_;
    for (;;) {
      const auto tree = x_.ask(xcb_query_tree, xcb_query_tree_reply, window);
      if (!tree || tree->parent == x_.root() || tree->parent == XCB_NONE) return window;
      window = tree->parent;
    }
  }

  /// In a backing store of its own the window keeps its pixels when it is covered or off the
  /// screen.
  void keepPixels() {
    top_ = topLevel();
    const xcb_pixmap_t store = xcb_generate_id(x_.get());
    const auto named = xcb_composite_name_window_pixmap_checked(x_.get(), top_, store);
    const XcbReply<xcb_generic_error_t> hadNone(xcb_request_check(x_.get(), named));
    xcb_free_pixmap(x_.get(), store);
    xcb_composite_redirect_window(x_.get(), top_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    if (hadNone) waitForPainting();
  }

  void release() {
    xcb_composite_unredirect_window(x_.get(), top_, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
  }

  /// A new store holds what was on the screen at its place until the application has painted.
  void waitForPainting() { readyFrom_ = Clock::now() + 100ms; }

  /// Where the window is on the screen, for the pointer's sake.
  void followPosition() {
    const auto place = x_.ask(xcb_translate_coordinates, xcb_translate_coordinates_reply, drawable_,
                              x_.root(), std::int16_t{0}, std::int16_t{0});
    if (place) position_ = {place->dst_x, place->dst_y, 0, 0};
  }

  xcb_window_t top_ = XCB_NONE;
  PixelRect position_;
  std::optional<Time> readyFrom_;
  bool mapped_ = false;  ///< The server keeps pixels of no others: the last picture stands.
  bool closed_ = false;
};

}  // namespace

std::unique_ptr<X11Scene> makeDisplayScene(const X11Connection& x, std::uint32_t display) {
  const auto area = areaOf(x, display);
  if (!area) throw takenAway();
  return std::make_unique<DisplayScene>(x, display, *area);
}

std::unique_ptr<X11Scene> makeWindowScene(const X11Connection& x, xcb_window_t window) {
  const auto geometry = x.ask(xcb_get_geometry, xcb_get_geometry_reply, window);
  if (!geometry) throw gone(window);
  return std::make_unique<WindowScene>(x, window, Size{geometry->width, geometry->height});
}

}  // namespace lenslark
