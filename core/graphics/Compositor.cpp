#include "graphics/Compositor.h"

#include <libyuv/planar_functions.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

namespace lenslark::Compositor {
namespace {

/// Memory that a thread keeps for the steps between two pictures: frames come thirty times a
/// second, and fresh pages cost more than the scaling.
std::uint8_t* scratch(std::size_t bytes) noexcept {
  thread_local std::unique_ptr<std::uint8_t[]> memory;
  thread_local std::size_t capacity = 0;
  if (bytes > capacity) {
    memory.reset(new (std::nothrow) std::uint8_t[bytes]);
    capacity = memory ? bytes : 0;
  }
  return memory.get();
}

std::size_t tightBytes(Size size) noexcept {
  return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4;
}

/// Whether the library's scaling darkens: the weights of its filter between columns add up to 127
/// of 128. It uses none where the width stays or is a single column, and averages exactly where
/// both sides are halved.
bool darkens(Size from, Size to) noexcept {
  const bool halves = from.width == 2 * to.width && from.height == 2 * to.height;
  return from.width != to.width && from.width > 1 && !halves;
}

/// Makes v * 127 / 128, rounded down, v again: white is white. (1 and 129 become 0 and 128.)
void lightenRow(std::uint8_t* row, int width) noexcept {
  const int bytes = width * 4;
  for (int i = 0; i < bytes; ++i) {
    row[i] = static_cast<std::uint8_t>(row[i] + (row[i] > 0) + (row[i] >= 128));
  }
}

void makeRowOpaque(std::uint8_t* row, int width) noexcept {
  // The alpha is the fourth byte of a pixel, whichever of a word's that is.
  constexpr std::array<std::uint8_t, 4> full{0, 0, 0, 255};
  const auto mask = std::bit_cast<std::uint32_t>(full);
  for (int x = 0; x < width; ++x) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, row + static_cast<std::ptrdiff_t>(x) * 4, sizeof pixel);
    pixel |= mask;
    std::memcpy(row + static_cast<std::ptrdiff_t>(x) * 4, &pixel, sizeof pixel);
  }
}

/// Calls `draw` for one band of the part after the other, and finishes each while it is still in
/// the cache.
template <typename Draw>
bool inBands(const PixelSpan& target, const PixelRect& part, bool dark, Alpha alpha, Draw draw) {
  constexpr int height = 32;
  const int band = dark || alpha == Alpha::opaque ? height : part.height;
  for (int y = 0; y < part.height; y += band) {
    const PixelRect rows{part.x, part.y + y, part.width, std::min(band, part.height - y)};
    if (!draw(rows)) return false;
    const PixelSpan drawn = target.part(rows);
    for (int row = 0; row < rows.height; ++row) {
      if (dark) lightenRow(drawn.row(row), rows.width);
      if (alpha == Alpha::opaque) makeRowOpaque(drawn.row(row), rows.width);
    }
  }
  return true;
}

/// Draws that part of the scaled picture.
bool filterPart(const PixelView& source, const PixelSpan& target, const PixelRect& part,
                Alpha alpha = Alpha::scaled) noexcept {
  constexpr int longestSide = 32768;  // the library counts in 16.16 fixed point, and does not check
  if (source.size.longerSide() > longestSide) return false;
  const bool dark = darkens(source.size, target.size);
  return inBands(target, part, dark, alpha, [&](const PixelRect& rows) {
    return libyuv::ARGBScaleClip(source.data, static_cast<int>(source.stride), source.size.width,
                                 source.size.height, target.data, static_cast<int>(target.stride),
                                 target.size.width, target.size.height, rows.x, rows.y, rows.width,
                                 rows.height, libyuv::kFilterBilinear) == 0;
  });
}

/// Sides more than twice as long as they should become are halved: the bilinear filter looks at
/// two pixels and would pass over those between.
Size halved(Size from, Size to) noexcept {
  const auto half = [](int side, int wanted) { return side > 2 * wanted ? (side + 1) / 2 : side; };
  return {half(from.width, to.width), half(from.height, to.height)};
}

/// The part of a picture that the filter looks at for a part of its target.
PixelRect seenFor(const PixelRect& part, Size target, Size source) noexcept {
  constexpr int reach = 2;  // a pixel's neighbour, and rounding
  const auto low = [](int edge, int from, int to) {
    return std::max(0, static_cast<int>(std::int64_t{edge} * to / from) - reach);
  };
  const auto high = [](int edge, int from, int to) {
    return std::min(to, static_cast<int>(std::int64_t{edge} * to / from) + 1 + reach);
  };
  const int left = low(part.x, target.width, source.width);
  const int top = low(part.y, target.height, source.height);
  return {left, top, high(part.x + part.width, target.width, source.width) - left,
          high(part.y + part.height, target.height, source.height) - top};
}

/// The part of a picture that is needed for a part of a target that it is scaled to in steps.
PixelRect neededFor(const PixelRect& part, Size target, Size source) noexcept {
  const Size next = halved(source, target);
  if (next == source) return seenFor(part, target, source);
  return seenFor(neededFor(part, target, next), next, source);
}

void averageTwo(const std::uint8_t* one, const std::uint8_t* other, std::uint8_t* result) noexcept {
  for (int i = 0; i < 4; ++i) result[i] = static_cast<std::uint8_t>((one[i] + other[i] + 1) / 2);
}

/// Draws a part of a target of half the sides, rounded up. The library is exact (and fast) at two
/// to one and nowhere else: what an odd side leaves over is averaged here.
bool halvePart(const PixelView& source, const PixelSpan& target, const PixelRect& part) noexcept {
  const Size pairs{source.size.width / 2, source.size.height / 2};
  const int right = std::min(part.x + part.width, pairs.width);
  const int bottom = std::min(part.y + part.height, pairs.height);
  if (right > part.x && bottom > part.y) {
    const PixelRect even{part.x, part.y, right - part.x, bottom - part.y};
    const PixelView from = source.part({even.x * 2, even.y * 2, even.width * 2, even.height * 2});
    if (!filterPart(from, target.part(even), {0, 0, even.width, even.height})) return false;
  }
  if (right < part.x + part.width) {
    const auto lastColumn = static_cast<std::ptrdiff_t>(source.size.width - 1) * 4;
    const int lastRow = source.size.height - 1;
    for (int y = part.y; y < part.y + part.height; ++y) {
      averageTwo(source.row(2 * y) + lastColumn,
                 source.row(std::min(2 * y + 1, lastRow)) + lastColumn,
                 target.row(y) + static_cast<std::ptrdiff_t>(pairs.width) * 4);
    }
  }
  if (bottom < part.y + part.height) {
    for (std::ptrdiff_t x = part.x; x < right; ++x) {
      const std::uint8_t* const pair = source.row(source.size.height - 1) + x * 8;
      averageTwo(pair, pair + 4, target.row(pairs.height) + x * 4);
    }
  }
  return true;
}

/// One step on the way from a large picture to a small one.
bool stepDown(const PixelView& source, const PixelSpan& target, const PixelRect& part) noexcept {
  const bool both =
      source.size.width != target.size.width && source.size.height != target.size.height;
  return both ? halvePart(source, target, part) : filterPart(source, target, part);
}

/// Draws the part in steps, and of the pictures between no more than it needs. These lie in two
/// pieces of memory that take turns: each is at most as large as the one before its predecessor.
bool scaleInSteps(const PixelView& source, const PixelSpan& target, const PixelRect& part,
                  Alpha alpha, std::uint8_t* place, std::uint8_t* other) noexcept {
  const Size next = halved(source.size, target.size);
  if (next == source.size) return filterPart(source, target, part, alpha);
  const PixelSpan step{place, next, std::ptrdiff_t{next.width} * 4};
  return stepDown(source, step, neededFor(part, target.size, next)) &&
         scaleInSteps(step, target, part, alpha, other, place);
}

/// x / 255, rounded to the nearest, for x up to 255 * 255.
constexpr unsigned dividedBy255(unsigned x) noexcept { return (x + 128 + ((x + 128) >> 8)) >> 8; }

void blendRow(const std::uint8_t* picture, std::uint8_t* target, int width) noexcept {
  for (int x = 0; x < width; ++x) {
    const unsigned through = 255U - picture[x * 4 + 3];
    for (int channel = 0; channel < 4; ++channel) {
      const int i = x * 4 + channel;
      const unsigned sum = picture[i] + dividedBy255(target[i] * through);
      target[i] = static_cast<std::uint8_t>(std::min(sum, 255U));
    }
  }
}

}  // namespace

void copy(const PixelView& source, const PixelSpan& target) noexcept {
  if (source.size.empty()) return;
  const std::size_t rowBytes = static_cast<std::size_t>(source.size.width) * 4;
  const auto tight = static_cast<std::ptrdiff_t>(rowBytes);
  if (source.stride == tight && target.stride == tight) {
    std::memcpy(target.data, source.data, tightBytes(source.size));
    return;
  }
  for (int y = 0; y < source.size.height; ++y) {
    std::memcpy(target.row(y), source.row(y), rowBytes);
  }
}

bool scale(const PixelView& source, const PixelSpan& target, Alpha alpha) noexcept {
  return scalePart(source, target, {0, 0, target.size.width, target.size.height}, alpha);
}

bool scalePart(const PixelView& source, const PixelSpan& target, const PixelRect& part,
               Alpha alpha) noexcept {
  if (source.size.empty() || target.size.empty()) return false;
  if (part.size().empty()) return true;
  if (source.size == target.size) {
    return inBands(target, part, false, alpha, [&](const PixelRect& rows) {
      copy(source.part(rows), target.part(rows));
      return true;
    });
  }
  const Size first = halved(source.size, target.size);
  if (first == source.size) return filterPart(source, target, part, alpha);
  const Size second = halved(first, target.size);
  const std::size_t firstBytes = tightBytes(first);
  const std::size_t secondBytes = second == first ? 0 : tightBytes(second);
  std::uint8_t* const memory = scratch(firstBytes + secondBytes);
  if (memory == nullptr) return false;
  return scaleInSteps(source, target, part, alpha, memory, memory + firstBytes);
}

void fill(const PixelSpan& target, const Color& color) noexcept {
  if (target.size.empty()) return;
  const auto premultiplied = [&](std::uint8_t value) {
    return std::uint32_t{dividedBy255(unsigned{value} * color.alpha)};
  };
  const std::uint32_t pixel = std::uint32_t{color.alpha} << 24 | premultiplied(color.red) << 16 |
                              premultiplied(color.green) << 8 | premultiplied(color.blue);
  libyuv::ARGBRect(target.data, static_cast<int>(target.stride), 0, 0, target.size.width,
                   target.size.height, pixel);
}

void makeOpaque(const PixelSpan& target) noexcept {
  for (int y = 0; y < target.size.height; ++y) makeRowOpaque(target.row(y), target.size.width);
}

bool isOpaque(const PixelView& picture) noexcept {
  for (int y = 0; y < picture.size.height; ++y) {
    const std::uint8_t* row = picture.row(y);
    unsigned all = 255;
    for (int x = 0; x < picture.size.width; ++x) all &= row[x * 4 + 3];
    if (all != 255) return false;
  }
  return true;
}

void blend(const PixelView& picture, const PixelSpan& target, int x, int y,
           bool targetOpaque) noexcept {
  const int left = std::max(x, 0);
  const int top = std::max(y, 0);
  const int right = std::min(x + picture.size.width, target.size.width);
  const int bottom = std::min(y + picture.size.height, target.size.height);
  if (left >= right || top >= bottom) return;
  const PixelView above = picture.part({left - x, top - y, right - left, bottom - top});
  const PixelSpan below = target.part({left, top, right - left, bottom - top});
  if (targetOpaque) {
    libyuv::ARGBBlend(above.data, static_cast<int>(above.stride), below.data,
                      static_cast<int>(below.stride), below.data, static_cast<int>(below.stride),
                      below.size.width, below.size.height);
    return;
  }
  for (int row = 0; row < below.size.height; ++row) {
    blendRow(above.row(row), below.row(row), below.size.width);
  }
}

void fade(const PixelSpan& target, double opacity) noexcept {
  constexpr std::uint32_t one = 1U << 16;
  const double share = std::isnan(opacity) ? 0 : std::clamp(opacity, 0.0, 1.0);
  const auto factor = static_cast<std::uint32_t>(std::lround(share * one));
  for (int y = 0; y < target.size.height; ++y) {
    std::uint8_t* const row = target.row(y);
    const int bytes = target.size.width * 4;
    for (int i = 0; i < bytes; ++i) {
      row[i] = static_cast<std::uint8_t>((row[i] * factor + one / 2) >> 16);
    }
  }
}

}  // namespace lenslark::Compositor
