#include "codecs/video/ToneMap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace lenslark::video {
namespace {

/// 64 steps along each axis, so that the table (1 MiB) stays near the core.
constexpr int tableBits = 6;
constexpr int tableSide = 1 << tableBits;

using Colour = std::array<double, 3>;

std::size_t entry(unsigned red, unsigned green, unsigned blue) noexcept {
  return (((std::size_t{red} << tableBits) | green) << tableBits) | blue;
}

/// SMPTE ST 2084, equation 4.1: the signal 0...1 to cd/m2.
double pqToLight(double signal) {
  constexpr double m1 = 2610.0 / 16384;
  constexpr double m2 = 2523.0 / 4096 * 128;
  constexpr double c1 = 3424.0 / 4096;
  constexpr double c2 = 2413.0 / 4096 * 32;
  constexpr double c3 = 2392.0 / 4096 * 32;
  const double power = std::pow(signal, 1 / m2);
  return 10000 * std::pow(std::max(power - c1, 0.0) / (c2 - c3 * power), 1 / m1);
}

/// ITU-R BT.2100, table 5: the signal to scene light 0...1.
double hlgToScene(double signal) {
  constexpr double a = 0.17883277;
  constexpr double b = 1 - 4 * a;
  const double c = 0.5 - a * std::log(4 * a);
  return signal <= 0.5 ? signal * signal / 3 : (std::exp((signal - c) / a) + b) / 12;
}

/// The same table's system gamma of 1.2 for a display of 1000 cd/m2.
Colour hlgToLight(const Colour& signal) {
  const Colour scene{hlgToScene(signal[0]), hlgToScene(signal[1]), hlgToScene(signal[2])};
  const double luminance = 0.2627 * scene[0] + 0.6780 * scene[1] + 0.0593 * scene[2];
  const double gain = 1000 * std::pow(luminance, 0.2);
  return {gain * scene[0], gain * scene[1], gain * scene[2]};
}

/// ITU-R BT.2087: linear light of BT.2020 primaries in those of BT.709.
Colour toBt709(const Colour& c) {
  return {1.6605 * c[0] - 0.5876 * c[1] - 0.0728 * c[2],
          -0.1246 * c[0] + 1.1329 * c[1] - 0.0083 * c[2],
          -0.0182 * c[0] - 0.1006 * c[1] + 1.1187 * c[2]};
}

/// Light in cd/m2 to 0...1: straight up to the knee, then a curve of the same slope that is flat
/// where it reaches the peak.
double rollOff(double light) {
  constexpr double scale = 0.8 / 203;
  constexpr double knee = 0.6;
  constexpr double peak = 1000 * scale;
  const double value = light * scale;
  if (value <= knee) return value;
  const double rest = 1 - std::min((value - knee) / (peak - knee), 1.0);
  return knee + (1 - knee) * (1 - std::pow(rest, (peak - knee) / (1 - knee)));
}

std::uint32_t srgbByte(double linear) {
  const double value = std::clamp(linear, 0.0, 1.0);
  const double encoded =
      value <= 0.0031308 ? value * 12.92 : 1.055 * std::pow(value, 1 / 2.4) - 0.055;
  return static_cast<std::uint32_t>(std::lround(encoded * 255));
}

/// One factor for all three keeps the hue.
std::uint32_t displayPixel(const Colour& light) {
  const double brightest = std::max({light[0], light[1], light[2], 1e-6});
  const double factor = rollOff(brightest) / brightest;
  return 0xFF000000U | srgbByte(light[0] * factor) << 16 | srgbByte(light[1] * factor) << 8 |
         srgbByte(light[2] * factor);
}

}  // namespace

ToneMap::ToneMap(Curve curve) : table_(std::size_t{tableSide} * tableSide * tableSide) {
  // Dithered, a value v falls on entry v/4 on the average: that entry is what 4 (v/4) stands for.
  constexpr double full = 255.0 / (1 << (8 - tableBits));
  for (unsigned red = 0; red < tableSide; ++red) {
    for (unsigned green = 0; green < tableSide; ++green) {
      for (unsigned blue = 0; blue < tableSide; ++blue) {
        const Colour signal{red / full, green / full, blue / full};
        const Colour light =
            curve == Curve::hlg
                ? hlgToLight(signal)
                : Colour{pqToLight(signal[0]), pqToLight(signal[1]), pqToLight(signal[2])};
        table_[entry(red, green, blue)] = displayPixel(toBt709(light));
      }
    }
  }
}

const ToneMap* ToneMap::forTags(const ColorTags& tags) {
  if (tags.transfer == AVCOL_TRC_SMPTE2084) {
    static const ToneMap map(Curve::pq);
    return &map;
  }
  if (tags.transfer == AVCOL_TRC_ARIB_STD_B67) {
    static const ToneMap map(Curve::hlg);
    return &map;
  }
  return nullptr;
}

void ToneMap::apply(const PixelSpan& pixels) const noexcept {
  // The two bits that the table does not tell apart are dithered, so that it leaves no bands.
  static constexpr std::array<unsigned, 4> dither{0, 2, 3, 1};
  for (int y = 0; y < pixels.size.height; ++y) {
    std::uint8_t* row = pixels.row(y);
    for (int x = 0; x < pixels.size.width; ++x) {
      std::uint8_t* pixel = row + static_cast<std::ptrdiff_t>(x) * 4;
      const unsigned offset = dither[static_cast<std::size_t>((y & 1) * 2 + (x & 1))];
      const auto step = [offset](unsigned value) {
        return std::min(value + offset, 255U) >> (8 - tableBits);
      };
      std::memcpy(pixel, &table_[entry(step(pixel[2]), step(pixel[1]), step(pixel[0]))], 4);
    }
  }
}

}  // namespace lenslark::video
