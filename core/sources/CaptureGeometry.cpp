#include "sources/CaptureGeometry.h"

#include <algorithm>

namespace lenslark::CaptureGeometry {
namespace {

constexpr double longerSide = 1280;

/// Shifts a side inside 0...limit; one that is longer stays where it is and is cut later.
double moveInside(double position, double length, double limit) noexcept {
  if (length > limit) return position;
  return std::min(std::max(0.0, position), limit - length);
}

int evenSide(double side, double longest) noexcept {
  // An exact 4:3 must not lose two lines to the last bit of a division.
  constexpr double lastBits = 1e-6;
  return 2 * static_cast<int>(side * longerSide / longest * 0.5 + lastBits);
}

}  // namespace

const DisplayInfo* display(const Rect& window, const std::vector<DisplayInfo>& displays) noexcept {
  const DisplayInfo* best = nullptr;
  double largest = 0;
  for (const DisplayInfo& candidate : displays) {
    if (candidate.frame.contains(window.midX(), window.midY())) return &candidate;
  }
  for (const DisplayInfo& candidate : displays) {
    const Rect shared = intersection(window, candidate.frame);
    if (const double area = shared.width * shared.height; area > largest) {
      largest = area;
      best = &candidate;
    }
  }
  return best;
}

Rect androidArea(const Rect& window) noexcept {
  const double height = window.width * 4 / 3;
  const double width = height * 4 / 3;
  return {window.midX() - width / 2, window.midY() - height / 2, width, height};
}

Capture capture(const Rect& window, bool android, const Rect& display) noexcept {
  Rect area = android ? androidArea(window) : window;
  area.x = moveInside(area.x - display.x, area.width, display.width);
  area.y = moveInside(area.y - display.y, area.height, display.height);
  const double longest = std::max({area.width, area.height, 1.0});
  const Size output{evenSide(area.width, longest), evenSide(area.height, longest)};
  const Rect shown = intersection(area, {0, 0, display.width, display.height});
  if (shown.width < 1 || shown.height < 1) return {{0, 0, 16, 16}, output};
  return {shown, output};
}

}  // namespace lenslark::CaptureGeometry
