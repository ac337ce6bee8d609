#include "graphics/Geometry.h"

#include <algorithm>
#include <cstdint>

namespace lenslark {
namespace {

/// value * numerator / denominator, rounded to the nearest whole number, within 1...limit.
int scaled(int value, int numerator, int denominator, int limit) noexcept {
  const std::int64_t product = std::int64_t{value} * numerator;
  const std::int64_t rounded = (2 * product + denominator) / (2 * std::int64_t{denominator});
  return static_cast<int>(std::clamp<std::int64_t>(rounded, 1, limit));
}

}  // namespace

Rect intersection(const Rect& a, const Rect& b) noexcept {
  const double left = std::max(a.minX(), b.minX());
  const double low = std::max(a.minY(), b.minY());
  const Rect shared{left, low, std::min(a.maxX(), b.maxX()) - left,
                    std::min(a.maxY(), b.maxY()) - low};
  return shared.empty() ? Rect{} : shared;
}

Placement place(Size picture, const PixelRect& into, bool fill) noexcept {
  if (picture.empty() || into.size().empty()) return {};
  Placement placement{.source = {0, 0, picture.width, picture.height}, .target = into};
  // Which side decides is settled by cross multiplication, so that equal shapes never leave a bar.
  const std::int64_t across = std::int64_t{into.width} * picture.height;
  const std::int64_t along = std::int64_t{into.height} * picture.width;
  if (fill) {
    PixelRect& part = placement.source;
    if (across > along) {
      part.height = scaled(into.height, picture.width, into.width, picture.height);
    } else {
      part.width = scaled(into.width, picture.height, into.height, picture.width);
    }
    part.x = (picture.width - part.width) / 2;
    part.y = (picture.height - part.height) / 2;
  } else {
    PixelRect& room = placement.target;
    if (across > along) {
      room.width = scaled(picture.width, into.height, picture.height, into.width);
    } else {
      room.height = scaled(picture.height, into.width, picture.width, into.height);
    }
    room.x = into.x + (into.width - room.width) / 2;
    room.y = into.y + (into.height - room.height) / 2;
  }
  return placement;
}

Size boundedBy(Size size, int maxSide) noexcept {
  const int longer = size.longerSide();
  if (size.empty() || longer <= maxSide) return size;
  return {scaled(size.width, maxSide, longer, maxSide),
          scaled(size.height, maxSide, longer, maxSide)};
}

}  // namespace lenslark
