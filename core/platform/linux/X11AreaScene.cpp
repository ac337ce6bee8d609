#include <utility>
#include <vector>

#include "platform/linux/X11Background.h"
#include "platform/linux/X11Compositing.h"
#include "platform/linux/X11Scene.h"
#include "platform/linux/X11WindowCopier.h"
#include "platform/linux/X11WindowStack.h"

namespace lenslark {
namespace {

class AreaScene final : public X11Scene {
 public:
  AreaScene(const X11Connection& x, const PixelRect& area, const ExcludedApplications& excluded)
      : area_(area),
        compositing_(x),
        background_(x),
        stack_(x, excludedWith(excluded), compositing_.active()),
        copier_(x) {
    dirty_ = Region(area_);
  }

  PixelRect area() const override { return area_; }

  void handle(const xcb_generic_event_t& event) override {
    stack_.handle(event);
    if (background_.handle(event) || compositing_.handle(event)) dirty_ = Region(area_);
    takeChanges();
  }

  bool dirty() const override { return !dirty_.empty(); }

  void retarget(const PixelRect& area) override {
    area_ = area;
    dirty_ = Region(area_);
  }

  std::optional<Time> nextWork() const override { return stack_.nextSettling(); }

  void work(Time now) override {
    stack_.settle(now);
    takeChanges();
  }

  Region draw(X11Picture& picture, bool all) override {
    stack_.takeUpheaval();
    stack_.expectDamage();
    Region wanted = all ? Region(area_) : dirty_;
    dirty_ = Region();
    const Region drawn = Region(wanted).move(-area_.x, -area_.y);
    paint(picture, wanted);
    return drawn;
  }

  /// The stack was read before the copying, and the windows' pixels at it. Where a window's store
  /// was made anew between the two, it may have held an excluded window's pixels.
  bool spoiled() override { return stack_.takeUpheaval(); }

 private:
  void takeChanges() {
    Region changes = stack_.takeChanges();
    if (!changes.empty()) dirty_.add(changes.intersect(Region(area_)));
  }

  ExcludedApplications excludedWith(ExcludedApplications excluded) const {
    excluded.windows.push_back(background_.window());
    return excluded;
  }

  bool translucent(const X11TopLevel& window) const {
    return compositing_.active() && copier_.hasAlpha(window);
  }

  void paint(X11Picture& picture, Region& wanted) {
    std::vector<std::pair<const X11TopLevel*, Region>> translucents;
    for (auto top = stack_.windows().rbegin(); top != stack_.windows().rend(); ++top) {
      const X11TopLevel& window = *top;
      if (wanted.empty()) break;
      if (!window.mapped || window.excluded || !window.drawable) continue;
      Region visible = Region(window.shape).move(window.frame.x, window.frame.y);
      visible.intersect(wanted);
      if (visible.empty()) continue;
      if (translucent(window)) {
        translucents.emplace_back(&window, std::move(visible));
        continue;
      }
      paintWindow(picture, window, visible);
      wanted.subtract(visible);
    }
    background_.paint(picture, wanted, area_);
    for (auto lower = translucents.rbegin(); lower != translucents.rend(); ++lower) {
      paintWindow(picture, *lower->first, lower->second);
    }
    copier_.forget();
  }

  void paintWindow(X11Picture& picture, const X11TopLevel& window, const Region& visible) {
    const Region unknown = Region(window.unknown).move(window.frame.x, window.frame.y);
    const Region known = Region(visible).subtract(unknown);
    copier_.copy(window, picture, known, area_, translucent(window));
    const Region hidden = Region(visible).intersect(unknown);
    copier_.black(picture, hidden, area_);
  }

  PixelRect area_;
  X11Compositing compositing_;
  X11Background background_;
  X11WindowStack stack_;
  X11WindowCopier copier_;
  Region dirty_;
};

}  // namespace

std::unique_ptr<X11Scene> makeAreaScene(const X11Connection& x, const PixelRect& area,
                                        const ExcludedApplications& excluded) {
  return std::make_unique<AreaScene>(x, area, excluded);
}

}  // namespace lenslark
