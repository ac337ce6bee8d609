#include "graphics/Compositor.h"

#include <libyuv/planar_functions.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
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
/// of 128. It uses none where the width stays, and averages exactly where both sides are halved.
bool darkens(Size from, Size to) noexcept {
  const bool halves = from.width == 2 * to.width && from.height == 2 * to.height;
  return from.width != to.width && !halves;
}

/// Makes v * 127 / 128, rounded down, v again: white is white. (1 and 129 become 0 and 128.)
void lighten(const PixelSpan& target) noexcept {
  for (int y = 0; y < target.size.height; ++y) {
    std::uint8_t* const row = target.row(y);
    const int bytes = target.size.width * 4;
    for (int i = 0; i < bytes; ++i) {
      row[i] = static_cast<std::uint8_t>(row[i] + (row[i] > 0) + (row[i] >= 128));
    }
  }
}

/// Draws that part of the scaled picture: what must be lightened in bands that are still in the
/// cache then.
bool filterPart(const PixelView& source, const PixelSpan& target, const PixelRect& part) noexcept {
  constexpr int longestSide = 32768;  // the library counts in 16.16 fixed point, and does not check
  if (source.size.longerSide() > longestSide) return false;
  const bool dark = darkens(source.size, target.size);
  const int band = dark ? 64 : part.height;
  for (int y = 0; y < part.height; y += band) {
    const PixelRect rows{part.x, part.y + y, part.width, std::min(band, part.height - y)};
    if (libyuv::ARGBScaleClip(source.data, static_cast<int>(source.stride), source.size.width,
                              source.size.height, target.data, static_cast<int>(target.stride),
                              target.size.width, target.size.height, rows.x, rows.y, rows.width,
                              rows.height, libyuv::kFilterBilinear) != 0) {
      return false;
    }
    if (dark) lighten(target.part(rows));
  }
  return true;
}

bool filter(const PixelView& source, const PixelSpan& target) noexcept {
  return filterPart(source, target, {0, 0, target.size.width, target.size.height});
}

/// Sides more than twice as long as they should become are halved: the bilinear filter looks at
/// two pixels and would pass over those between.
Size halved(Size from, Size to) noexcept {
  const auto half = [](int side, int wanted) { return side > 2 * wanted ? (side + 1) / 2 : side; };
  return {half(from.width, to.width), half(from.height, to.height)};
}

void averageTwo(const std::uint8_t* one, const std::uint8_t* other, std::uint8_t* result) noexcept {
  for (int i = 0; i < 4; ++i) result[i] = static_cast<std::uint8_t>((one[i] + other[i] + 1) / 2);
}

/// To a target of half the sides, rounded up. The library is exact (and fast) at two to one and
/// nowhere else: what an odd side leaves over is averaged here.
bool halve(const PixelView& source, const PixelSpan& target) noexcept {
  const Size pairs{source.size.width / 2, source.size.height / 2};
  if (!filter(source.part({0, 0, pairs.width * 2, pairs.height * 2}),
              target.part({0, 0, pairs.width, pairs.height}))) {
    return false;
  }
  const auto lastColumn = static_cast<std::ptrdiff_t>(source.size.width - 1) * 4;
  const int lastRow = source.size.height - 1;
  if (source.size.width % 2 != 0) {
    for (int y = 0; y < target.size.height; ++y) {
      averageTwo(source.row(2 * y) + lastColumn,
                 source.row(std::min(2 * y + 1, lastRow)) + lastColumn,
                 target.row(y) + static_cast<std::ptrdiff_t>(pairs.width) * 4);
    }
  }
  if (source.size.height % 2 != 0) {
    for (std::ptrdiff_t x = 0; x < pairs.width; ++x) {
      const std::uint8_t* const pair = source.row(lastRow) + x * 8;
      averageTwo(pair, pair + 4, target.row(pairs.height) + x * 4);
    }
  }
  return true;
}

/// One step on the way from a large picture to a small one.
bool stepDown(const PixelView& source, const PixelSpan& target) noexcept {
  const bool both =
      source.size.width != target.size.width && source.size.height != target.size.height;
  return both ? halve(source, target) : filter(source, target);
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

bool scale(const PixelView& source, const PixelSpan& target) noexcept {
  if (source.size.empty() || target.size.empty()) return false;
  if (source.size == target.size) {
    copy(source, target);
    return true;
  }
  Size next = halved(source.size, target.size);
  if (next == source.size) return filter(source, target);

  // Two pieces of scratch memory take turns: each picture is at most as large as the one before
  // its predecessor, and fits where that one lay.
  const Size second = halved(next, target.size);
  const std::size_t firstBytes = tightBytes(next);
  const std::size_t secondBytes = second == next ? 0 : tightBytes(second);
  std::uint8_t* const memory = scratch(firstBytes + secondBytes);
  if (memory == nullptr) return false;

  PixelView from = source;
  std::uint8_t* place = memory;
  std::uint8_t* other = memory + firstBytes;
  while (next != from.size) {
    const PixelSpan step{place, next, std::ptrdiff_t{next.width} * 4};
    if (!stepDown(from, step)) return false;
    from = step;
    std::swap(place, other);
    next = halved(from.size, target.size);
  }
  return filter(from, target);
}

bool scalePart(const PixelView& source, const PixelSpan& target, const PixelRect& part) noexcept {
  if (source.size.empty() || target.size.empty()) return false;
  if (part.size().empty()) return true;
  if (source.size == target.size) {
    copy(source.part(part), target.part(part));
    return true;
  }
  if (halved(source.size, target.size) != source.size) return false;
  return filterPart(source, target, part);
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
  for (int y = 0; y < target.size.height; ++y) {
    std::uint8_t* const row = target.row(y);
    for (int x = 0; x < target.size.width; ++x) row[x * 4 + 3] = 255;
  }
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
