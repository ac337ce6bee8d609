#include "feeds/FrameLayout.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace lenslark::FrameLayout {
namespace {

int even(std::int64_t side) noexcept { return static_cast<int>(side / 2 * 2); }

/// value * numerator / denominator to the nearest whole number.
int scaled(int value, int numerator, int denominator) noexcept {
  const std::int64_t product = std::int64_t{value} * numerator;
  return static_cast<int>((2 * product + denominator) / (2 * std::int64_t{denominator}));
}

/// How far a picture shrinks to keep to a longest side: numerator / denominator, at most 1. In
/// whole numbers, because 1 / 2048 * 2048 must not come out as a little less than one.
struct Ratio {
  int numerator = 1;
  int denominator = 1;

  int floorEven(int side) const noexcept {
    return even(std::int64_t{side} * numerator / denominator);
  }
  int down(int side) const noexcept { return scaled(side, numerator, denominator); }
  int up(int side) const noexcept { return scaled(side, denominator, numerator); }
};

Ratio ratioFor(Size size, int maxSide) noexcept {
  if (size.longerSide() <= maxSide) return {};
  return {std::max(maxSide, 1), size.longerSide()};
}

std::optional<Size> evenOutput(Size size, const Ratio& ratio) noexcept {
  const Size output{ratio.floorEven(size.width), ratio.floorEven(size.height)};
  if (output.empty()) return std::nullopt;
  return output;
}

enum class Column { left, middle, right };
enum class Row { top, middle, bottom };

Column columnOf(Anchor anchor) noexcept {
  switch (anchor) {
    case Anchor::topLeft:
    case Anchor::left:
    case Anchor::bottomLeft:
      return Column::left;
    case Anchor::topRight:
    case Anchor::right:
    case Anchor::bottomRight:
      return Column::right;
    default:
      return Column::middle;
  }
}

Row rowOf(Anchor anchor) noexcept {
  switch (anchor) {
    case Anchor::topLeft:
    case Anchor::top:
    case Anchor::topRight:
      return Row::top;
    case Anchor::bottomLeft:
    case Anchor::bottom:
    case Anchor::bottomRight:
      return Row::bottom;
    default:
      return Row::middle;
  }
}

double anchoredX(Anchor anchor, const Rect& region, double margin, double width) noexcept {
  switch (columnOf(anchor)) {
    case Column::left:
      return region.minX() + margin + width / 2;
    case Column::right:
      return region.maxX() - margin - width / 2;
    case Column::middle:
      break;
  }
  return region.midX();
}

double anchoredY(Anchor anchor, const Rect& region, double margin, double height) noexcept {
  switch (rowOf(anchor)) {
    case Row::top:
      return region.maxY() - margin - height / 2;
    case Row::bottom:
      return region.minY() + margin + height / 2;
    case Row::middle:
      break;
  }
  return region.midY();
}

/// Not std::clamp: what is larger than its region stands over its lower edge.
double held(double center, double low, double high) noexcept {
  return std::min(std::max(center, low), high);
}

/// One axis of an overlay in pixels: what part of it is seen and where. Nothing when none is.
struct Run {
  int source = 0;
  int sourceLength = 0;
  int target = 0;
  int targetLength = 0;
};

std::optional<Run> visibleRun(double start, double length, int pixels, int limit) noexcept {
  const double end = std::max(std::round(start + length), std::round(start) + 1);
  const double begin = std::round(start);
  const double seenBegin = std::max(begin, 0.0);
  const double seenEnd = std::min(end, static_cast<double>(limit));
  if (!(seenBegin < seenEnd) || !std::isfinite(end - begin)) return std::nullopt;
  const double perPixel = pixels / (end - begin);
  const int first =
      std::min(static_cast<int>(std::floor((seenBegin - begin) * perPixel)), pixels - 1);
  const int last =
      std::clamp(static_cast<int>(std::ceil((seenEnd - begin) * perPixel)), first + 1, pixels);
  return Run{first, last - first, static_cast<int>(seenBegin),
             static_cast<int>(seenEnd - seenBegin)};
}

}  // namespace

std::optional<Plan> planWhole(Size picture, int maxSide) noexcept {
  const Ratio ratio = ratioFor(picture, maxSide);
  const std::optional<Size> output = evenOutput(picture, ratio);
  if (!output) return std::nullopt;
  const int width = std::min(ratio.up(output->width), picture.width);
  const int height = std::min(ratio.up(output->height), picture.height);
  return Plan{*output,
              {.source = {0, picture.height - height, width, height},
               .target = {0, 0, output->width, output->height}}};
}

std::optional<Plan> planOnCanvas(Size picture, bool fill, int maxSide) noexcept {
  const Ratio ratio = ratioFor(androidCanvas, maxSide);
  const std::optional<Size> output = evenOutput(androidCanvas, ratio);
  if (!output || picture.empty()) return std::nullopt;
  Plan plan{*output, place(picture, androidStrip, fill)};
  // Measured from the bottom left, where the scaled canvas and the frame coincide.
  PixelRect& target = plan.picture.target;
  const int bottom = ratio.down(androidCanvas.height - target.y - target.height);
  const int top = std::min(ratio.down(androidCanvas.height - target.y), output->height);
  const int left = ratio.down(target.x);
  const int right = std::min(ratio.down(target.x + target.width), output->width);
  if (left >= right || bottom >= top) return std::nullopt;
  target = {left, output->height - top, right - left, top - bottom};
  return plan;
}

Rect overlayRegion(Size frame, bool android, bool fill) noexcept {
  const double width = frame.width;
  const double height = frame.height;
  if (android) {
    const double strip = std::min(height * 3 * 0.25, width);
    return {(width - strip) / 2, 0, strip, height};
  }
  if (!fill) return {0, 0, width, height};
  const double across = std::min(height * 9 * 0.0625, width);
  const double along = std::min(width * 4 / 3, height);
  return {(width - across) / 2, (height - along) / 2, across, along};
}

Rect overlayRect(Size overlay, const OverlaySpec& spec, const Rect& region) noexcept {
  if (overlay.empty() || !(spec.scale > 0)) return {};
  const double shorter = std::min(region.width, region.height);
  const double factor = shorter * spec.scale / overlay.longerSide();
  const double width = overlay.width * factor;
  const double height = overlay.height * factor;
  const double margin = 0.04 * shorter;
  double x = anchoredX(spec.anchor, region, margin, width);
  double y = anchoredY(spec.anchor, region, margin, height);
  if (spec.x && spec.y) {
    x = region.minX() + *spec.x * region.width;
    y = region.maxY() - *spec.y * region.height;
  }
  x = held(x, region.minX() + width / 2, region.maxX() - width / 2);
  y = held(y, region.minY() + height / 2, region.maxY() - height / 2);
  return {x - width / 2, y - height / 2, width, height};
}

std::optional<Placement> placeOverlay(Size overlay, const OverlaySpec& spec, const Rect& region,
                                      Size frame) noexcept {
  const Rect rect = overlayRect(overlay, spec, region);
  if (rect.empty()) return std::nullopt;
  const double top = frame.height - rect.maxY();
  const std::optional<Run> across = visibleRun(rect.minX(), rect.width, overlay.width, frame.width);
  const std::optional<Run> down = visibleRun(top, rect.height, overlay.height, frame.height);
  if (!across || !down) return std::nullopt;
  return Placement{
      .source = {across->source, down->source, across->sourceLength, down->sourceLength},
      .target = {across->target, down->target, across->targetLength, down->targetLength}};
}

}  // namespace lenslark::FrameLayout
