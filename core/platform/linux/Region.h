#pragma once

#include <pixman.h>

#include <span>
#include <utility>

#include "graphics/Geometry.h"

namespace lenslark {

/// A set of pixels made of rectangles.
class Region {
 public:
  Region() noexcept { pixman_region32_init(&region_); }
  explicit Region(const PixelRect& rect) noexcept {
    pixman_region32_init_rect(&region_, rect.x, rect.y, static_cast<unsigned>(rect.width),
                              static_cast<unsigned>(rect.height));
  }
  Region(const Region& other) : Region() { pixman_region32_copy(&region_, other.raw()); }
  Region(Region&& other) noexcept : Region() { std::swap(region_, other.region_); }
  Region& operator=(Region other) noexcept {
    std::swap(region_, other.region_);
    return *this;
  }
  ~Region() { pixman_region32_fini(&region_); }

  bool empty() const noexcept { return !pixman_region32_not_empty(raw()); }

  Region& add(const Region& other) {
    pixman_region32_union(&region_, &region_, other.raw());
    return *this;
  }
  Region& subtract(const Region& other) {
    pixman_region32_subtract(&region_, &region_, other.raw());
    return *this;
  }
  Region& intersect(const Region& other) {
    pixman_region32_intersect(&region_, &region_, other.raw());
    return *this;
  }
  Region& move(int x, int y) {
    pixman_region32_translate(&region_, x, y);
    return *this;
  }
  /// What it covers, and where it is made of very many rectangles some more, so that there are few:
  /// to go through these costs more than the pixels added.
  Region coarser() const {
    constexpr std::size_t many = 16;
    constexpr int columns = 32;
    constexpr int rows = 8;
    if (boxes().size() <= many) return *this;
    const auto down = [](int edge, int grain) { return edge & ~(grain - 1); };
    Region coarse;
    for (const auto& box : boxes()) {
      const int left = down(box.x1, columns);
      const int top = down(box.y1, rows);
      coarse.add(Region({left, top, down(box.x2 + columns - 1, columns) - left,
                         down(box.y2 + rows - 1, rows) - top}));
    }
    return coarse;
  }

  /// The smallest rectangle around it.
  PixelRect extents() const noexcept {
    const pixman_box32_t* box = pixman_region32_extents(raw());
    return {box->x1, box->y1, box->x2 - box->x1, box->y2 - box->y1};
  }

  /// From the top to the bottom, and from the left to the right.
  std::span<const pixman_box32_t> boxes() const noexcept {
    int count = 0;
    const pixman_box32_t* first = pixman_region32_rectangles(raw(), &count);
    return {first, static_cast<std::size_t>(count)};
  }

 private:
  /// pixman's reading functions take pointers to what they do not change.
  pixman_region32_t* raw() const noexcept { return &region_; }

  mutable pixman_region32_t region_{};
};

}  // namespace lenslark
