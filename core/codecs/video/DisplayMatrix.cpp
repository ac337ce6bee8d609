#include "codecs/video/DisplayMatrix.h"

#include <cmath>
#include <numbers>

namespace lenslark::video {

Orientation orientationOf(const std::array<std::int32_t, 4>& matrix) noexcept {
  // A point (x, y), y downwards, comes to (a x + c y, b x + d y).
  double a = matrix[0];
  double b = matrix[1];
  const double c = matrix[2];
  const double d = matrix[3];
  const bool mirrored = a * d - b * c < 0;
  if (mirrored) {  // taken out from the right: the picture is mirrored before it is turned
    a = -a;
    b = -b;
  }
  if (a == 0 && b == 0) return {};
  const double quarters = std::atan2(b, a) / (std::numbers::pi / 2);
  return {(static_cast<int>(std::lround(quarters)) + 4) % 4, mirrored};
}

Orientation orientationOf(const AVStream& stream) noexcept {
  std::size_t size = 0;
  const std::uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (data == nullptr || size < 9 * sizeof(std::int32_t)) return {};
  const auto* matrix = reinterpret_cast<const std::int32_t*>(data);
  return orientationOf({matrix[0], matrix[1], matrix[3], matrix[4]});
}

Size squarePixels(Size stored, AVRational pixelShape) noexcept {
  if (pixelShape.num <= 0 || pixelShape.den <= 0) return stored;
  const double shape = av_q2d(pixelShape);
  constexpr double mostAbsurd = 16;
  if (shape > mostAbsurd || shape < 1 / mostAbsurd) return stored;
  if (shape >= 1) return {static_cast<int>(std::lround(stored.width * shape)), stored.height};
  return {stored.width, static_cast<int>(std::lround(stored.height / shape))};
}

}  // namespace lenslark::video
