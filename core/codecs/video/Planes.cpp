#include "codecs/video/Planes.h"

#include <libyuv/planar_functions.h>
#include <libyuv/rotate.h>
#include <libyuv/scale.h>

#include <vector>

#include "codecs/video/RowFilter.h"

namespace lenslark::video {
namespace {

int halfOf(int side) noexcept { return (side + 1) / 2; }

std::size_t areaOf(Size size) noexcept {
  return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

/// Fills the planes of a picture in `memory` one after the other.
template <typename Fill>
Planes fillPlanes(Size size, Chroma chroma, std::uint8_t* memory, Fill&& fill) {
  const Planes result = planesIn(memory, size, chroma);
  for (std::size_t index = 0; index < result.planes.size(); ++index) {
    fill(index, memory, result.planes[index].size);
    memory += areaOf(result.planes[index].size);
  }
  return result;
}

/// Scales down by no more than a half. As libyuv does it, but for the rows' filter: that takes it
/// two thirds of the time.
void filterPlane(const Plane& source, std::uint8_t* target, Size size) {
  const RowFilter filter(source.size.width, size.width);
  std::vector<std::uint8_t> between(static_cast<std::size_t>(source.size.width));
  const std::int64_t step = (std::int64_t{source.size.height} << 16) / size.height;
  std::int64_t place = step / 2 - (1 << 15);
  for (int y = 0; y < size.height; ++y, place += step, target += size.width) {
    const auto above = static_cast<int>(place >> 16);
    const auto share = static_cast<int>(place >> 8) & 255;
    const std::uint8_t* row = source.data + std::ptrdiff_t{above} * source.stride;
    if (share != 0 && above + 1 < source.size.height) {
      libyuv::InterpolatePlane(row, 0, row + source.stride, 0, between.data(), 0, source.size.width,
                               1, share);
      row = between.data();
    }
    filter.apply(row, target);
  }
}

/// The library has faster ways to the half and to three quarters.
bool isSimple(Size from, Size to) noexcept {
  return (from.width == 2 * to.width && from.height == 2 * to.height) ||
         (3 * from.width == 4 * to.width && 3 * from.height == 4 * to.height);
}

void scalePlane(const Plane& source, std::uint8_t* target, Size size) {
  if (RowFilter::suits(source.size.width, size.width) && source.size.height >= size.height &&
      source.size.height <= 2 * size.height && !isSimple(source.size, size)) {
    return filterPlane(source, target, size);
  }
  // A bilinear filter looks at four samples: beyond 2:1 it would pass over some, so exact halves
  // come first.
  if (source.size.width <= 2 * size.width || source.size.height <= 2 * size.height) {
    libyuv::ScalePlane(source.data, source.stride, source.size.width, source.size.height, target,
                       size.width, size.width, size.height, libyuv::kFilterBilinear);
    return;
  }
  const Size half{source.size.width / 2, source.size.height / 2};
  std::vector<std::uint8_t> memory(areaOf(half));
  libyuv::ScalePlane(source.data, source.stride, half.width * 2, half.height * 2, memory.data(),
                     half.width, half.width, half.height, libyuv::kFilterBox);
  scalePlane({memory.data(), half.width, half}, target, size);
}

libyuv::RotationMode rotationMode(int quarterTurns) noexcept {
  constexpr std::array modes{libyuv::kRotate0, libyuv::kRotate90, libyuv::kRotate180,
                             libyuv::kRotate270};
  return modes[static_cast<std::size_t>(quarterTurns % 4)];
}

void orientPlane(const Plane& source, Orientation orientation, std::uint8_t* target) {
  const Size size = source.size;
  const auto turn = [&](const std::uint8_t* data, int stride) {
    libyuv::RotatePlane(data, stride, target, orientation.apply(size).width, size.width,
                        size.height, rotationMode(orientation.quarterTurns));
  };
  if (!orientation.mirrored) return turn(source.data, source.stride);
  std::vector<std::uint8_t> mirrored(areaOf(size));
  libyuv::MirrorPlane(source.data, source.stride, mirrored.data(), size.width, size.width,
                      size.height);
  turn(mirrored.data(), size.width);
}

}  // namespace

Size chromaSize(Size picture, Chroma chroma) noexcept {
  if (chroma == Chroma::full) return picture;
  return {halfOf(picture.width), chroma == Chroma::half ? picture.height : halfOf(picture.height)};
}

std::size_t bytesOf(Size picture, Chroma chroma) noexcept {
  return areaOf(picture) + 2 * areaOf(chromaSize(picture, chroma));
}

Planes planesIn(const std::uint8_t* memory, Size picture, Chroma chroma) noexcept {
  const Size colour = chromaSize(picture, chroma);
  const std::uint8_t* u = memory + areaOf(picture);
  return {{Plane{memory, picture.width, picture}, Plane{u, colour.width, colour},
           Plane{u + areaOf(colour), colour.width, colour}},
          chroma};
}

Planes crop(const Planes& source, const PixelRect& part) noexcept {
  const int stepX = source.chroma == Chroma::full ? 1 : 2;
  const int stepY = source.chroma == Chroma::quarter ? 2 : 1;
  const int x = part.x / stepX;
  const int y = part.y / stepY;
  const Size colour = chromaSize(part.size(), source.chroma);
  return {{source.planes[0].part(x * stepX, y * stepY, part.size()),
           source.planes[1].part(x, y, colour), source.planes[2].part(x, y, colour)},
          source.chroma};
}

Planes scaleInto(const Planes& source, Size target, Chroma chroma, std::uint8_t* memory) {
  return fillPlanes(target, chroma, memory, [&](std::size_t index, std::uint8_t* to, Size size) {
    scalePlane(source.planes[index], to, size);
  });
}

Planes orientInto(const Planes& source, Orientation orientation, std::uint8_t* memory) {
  return fillPlanes(orientation.apply(source.size()), source.chroma, memory,
                    [&](std::size_t index, std::uint8_t* to, Size) {
                      orientPlane(source.planes[index], orientation, to);
                    });
}

Planes reduceInto(const Planes& deep, std::uint8_t* memory) noexcept {
  constexpr int tenBitsToEight = 1 << 14;  // a quarter, in libyuv's 16.16 fractions
  return fillPlanes(deep.size(), deep.chroma, memory,
                    [&](std::size_t index, std::uint8_t* to, Size size) {
                      const Plane& plane = deep.planes[index];
                      libyuv::Convert16To8Plane(reinterpret_cast<const std::uint16_t*>(plane.data),
                                                plane.stride / 2, to, size.width, tenBitsToEight,
                                                size.width, size.height);
                    });
}

}  // namespace lenslark::video
