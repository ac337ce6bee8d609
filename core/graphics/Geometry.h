#pragma once

#include <cmath>

namespace lenslark {

/// Whole pixels.
struct Size {
  int width = 0;
  int height = 0;

  constexpr bool empty() const noexcept { return width <= 0 || height <= 0; }
  constexpr int longerSide() const noexcept { return width > height ? width : height; }
  friend constexpr bool operator==(const Size&, const Size&) = default;
};

/// Whole pixels, origin at the top left, y downwards, as pictures lie in memory.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  constexpr Size size() const noexcept { return {width, height}; }
  friend constexpr bool operator==(const PixelRect&, const PixelRect&) = default;
};

/// A rectangle in real coordinates. Which way y points is the user's affair and said there.
struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  constexpr double minX() const noexcept { return x; }
  constexpr double minY() const noexcept { return y; }
  constexpr double maxX() const noexcept { return x + width; }
  constexpr double maxY() const noexcept { return y + height; }
  constexpr double midX() const noexcept { return x + width / 2; }
  constexpr double midY() const noexcept { return y + height / 2; }
  constexpr bool empty() const noexcept { return !(width > 0 && height > 0); }
  constexpr bool contains(double px, double py) const noexcept {
    return px >= minX() && px < maxX() && py >= minY() && py < maxY();
  }
  friend constexpr bool operator==(const Rect&, const Rect&) = default;
};

/// What two rectangles share; empty (all zero) when they share nothing.
Rect intersection(const Rect& a, const Rect& b) noexcept;

/// How a picture of one shape meets a rectangle of another.
struct Placement {
  /// The part of the picture that is shown.
  PixelRect source;
  /// Where it is shown.
  PixelRect target;

  friend constexpr bool operator==(const Placement&, const Placement&) = default;
};

/// Uniformly scaled and centred in `into`: whole with bars left over (fit), or covering it with
/// what stands over cut off (fill). Sides are at least one pixel.
Placement place(Size picture, const PixelRect& into, bool fill) noexcept;

/// The size scaled so that its longer side is at most `maxSide`, never enlarged, each side rounded
/// to the nearest pixel and at least one.
Size boundedBy(Size size, int maxSide) noexcept;

}  // namespace lenslark
