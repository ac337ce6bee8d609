#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include <xcb/composite.h>

#include "platform/linux/X11Background.h"
#include "platform/linux/X11Scene.h"
#include "platform/linux/X11WindowStack.h"

namespace lenslark {
namespace {

std::int16_t i16(int value) { return static_cast<std::int16_t>(value); }
std::uint16_t u16(int value) { return static_cast<std::uint16_t>(value); }

/// Copies pixels between drawables, children included.
class Copier {
 public:
  explicit Copier(const X11Connection& x) : x_(x), gc_(xcb_generate_id(x.get())) {
    const std::uint32_t values[] = {0, XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS, 0};
    xcb_create_gc(x.get(), gc_, x.root(),
                  XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE | XCB_GC_GRAPHICS_EXPOSURES, values);
    readFormats();
  }
  ~Copier() {
    forget();
    xcb_free_gc(x_.get(), gc_);
  }
  Copier(const Copier&) = delete;
  Copier& operator=(const Copier&) = delete;

  /// Pictures of drawables that are no more; made again on demand.
  void forget() {
    for (const auto& [drawable, picture] : pictures_) xcb_render_free_picture(x_.get(), picture);
    pictures_.clear();
  }

  void copy(const X11TopLevel& window, const X11Picture& target, const pixman_box32_t& box,
            const PixelRect& area) {
    const int width = box.x2 - box.x1;
    const int height = box.y2 - box.y1;
    const int sourceX = box.x1 - window.frame.x;
    const int sourceY = box.y1 - window.frame.y;
    if (window.depth == x_.screen().root_depth) {
      xcb_copy_area(x_.get(), window.id, target.pixmap(), gc_, i16(sourceX), i16(sourceY),
                    i16(box.x1 - area.x), i16(box.y1 - area.y), u16(width), u16(height));
      return;
    }
    const auto format = formats_.find(window.visual);
    if (format == formats_.end()) return black(target, box, area);
    xcb_render_composite(x_.get(), XCB_RENDER_PICT_OP_OVER, pictureOf(window.id, format->second),
                         XCB_RENDER_PICTURE_NONE,
                         pictureOf(target.pixmap(), formats_.at(x_.screen().root_visual)),
                         i16(sourceX), i16(sourceY), 0, 0, i16(box.x1 - area.x),
                         i16(box.y1 - area.y), u16(width), u16(height));
  }

  void black(const X11Picture& target, const pixman_box32_t& box, const PixelRect& area) {
    const xcb_rectangle_t rect{i16(box.x1 - area.x), i16(box.y1 - area.y), u16(box.x2 - box.x1),
                               u16(box.y2 - box.y1)};
    xcb_poly_fill_rectangle(x_.get(), target.pixmap(), gc_, 1, &rect);
  }

 private:
  void readFormats() {
    const auto answer = x_.ask(xcb_render_query_pict_formats, xcb_render_query_pict_formats_reply);
    if (!answer) return;
    for (auto screens = xcb_render_query_pict_formats_screens_iterator(answer.get());
         screens.rem > 0; xcb_render_pictscreen_next(&screens)) {
      for (auto depths = xcb_render_pictscreen_depths_iterator(screens.data); depths.rem > 0;
           xcb_render_pictdepth_next(&depths)) {
        const xcb_render_pictvisual_t* visuals = xcb_render_pictdepth_visuals(depths.data);
        for (int index = 0; index < xcb_render_pictdepth_visuals_length(depths.data); ++index) {
          formats_[visuals[index].visual] = visuals[index].format;
        }
      }
    }
  }

  xcb_render_picture_t pictureOf(xcb_drawable_t drawable, xcb_render_pictformat_t format) {
    const auto known = pictures_.find(drawable);
    if (known != pictures_.end()) return known->second;
    const xcb_render_picture_t picture = xcb_generate_id(x_.get());
    const std::uint32_t children = XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS;
    xcb_render_create_picture(x_.get(), picture, drawable, format, XCB_RENDER_CP_SUBWINDOW_MODE,
                              &children);
    return pictures_[drawable] = picture;
  }

  const X11Connection& x_;
  const xcb_gcontext_t gc_;
  std::map<xcb_visualid_t, xcb_render_pictformat_t> formats_;
  std::map<xcb_drawable_t, xcb_render_picture_t> pictures_;
};

/// Holds the server still, so that nothing changes between what is known of the windows and what is
/// copied of them: a window of an excluded application that was mapped a moment ago would show.
class ServerGrab {
 public:
  explicit ServerGrab(const X11Connection& x) : x_(x) { xcb_grab_server(x.get()); }
  ~ServerGrab() {
    xcb_ungrab_server(x_.get());
    xcb_flush(x_.get());
  }
  ServerGrab(const ServerGrab&) = delete;
  ServerGrab& operator=(const ServerGrab&) = delete;

 private:
  const X11Connection& x_;
};

class AreaScene final : public X11Scene {
 public:
  AreaScene(const X11Connection& x, const PixelRect& area, const ExcludedApplications& excluded)
      : x_(x), area_(area), background_(x), stack_(x, excludedWith(excluded)), copier_(x) {
    dirty_ = Region(area_);
  }

  PixelRect area() const override { return area_; }

  void handle(const xcb_generic_event_t& event) override {
    stack_.handle(event);
    if (background_.handle(event)) dirty_.add(Region(area_));
    dirty_.add(stack_.takeChanges()).intersect(Region(area_));
  }

  bool dirty() const override { return !dirty_.empty(); }

  void retarget(const PixelRect& area) override {
    area_ = area;
    dirty_ = Region(area_);
  }

  std::optional<Time> nextWork() const override { return stack_.nextSettling(); }

  void work(Time now) override {
    stack_.settle(now);
    dirty_.add(stack_.takeChanges()).intersect(Region(area_));
  }

  void draw(X11Picture& picture, bool all) override {
    const ServerGrab grab(x_);
    x_.sync();
    while (const XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(x_.get())}) handle(*event);
    stack_.expectDamage();
    Region wanted = all ? Region(area_) : dirty_;
    dirty_ = Region();
    paint(picture, wanted);
  }

 private:
  ExcludedApplications excludedWith(ExcludedApplications excluded) {
    if (background_.window() != XCB_NONE) excluded.windows.push_back(background_.window());
    return excluded;
  }

  void paint(X11Picture& picture, Region& wanted) {
    std::vector<std::pair<const X11TopLevel*, Region>> translucent;
    copier_.forget();
    for (auto top = stack_.windows().rbegin(); top != stack_.windows().rend(); ++top) {
      const X11TopLevel& window = *top;
      if (wanted.empty()) break;
      if (!window.mapped || window.excluded || !window.drawable) continue;
      Region visible = Region(window.shape).move(window.frame.x, window.frame.y);
      visible.intersect(wanted);
      if (visible.empty()) continue;
      if (window.depth != x_.screen().root_depth) {
        translucent.emplace_back(&window, std::move(visible));
        continue;
      }
      paintWindow(picture, window, visible);
      wanted.subtract(visible);
    }
    background_.paint(picture, wanted, area_);
    for (auto lower = translucent.rbegin(); lower != translucent.rend(); ++lower) {
      paintWindow(picture, *lower->first, lower->second);
    }
  }

  void paintWindow(X11Picture& picture, const X11TopLevel& window, const Region& visible) {
    const Region unknown = Region(window.unknown).move(window.frame.x, window.frame.y);
    const Region known = Region(visible).subtract(unknown);
    for (const auto& box : known.boxes()) copier_.copy(window, picture, box, area_);
    const Region hidden = Region(visible).intersect(unknown);
    for (const auto& box : hidden.boxes()) copier_.black(picture, box, area_);
  }

  const X11Connection& x_;
  PixelRect area_;
  X11Background background_;
  X11WindowStack stack_;
  Copier copier_;
  Region dirty_;
};

}  // namespace

std::unique_ptr<X11Scene> makeAreaScene(const X11Connection& x, const PixelRect& area,
                                        const ExcludedApplications& excluded) {
  return std::make_unique<AreaScene>(x, area, excluded);
}

}  // namespace lenslark
