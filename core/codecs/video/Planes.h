#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "graphics/Geometry.h"

namespace lenslark::video {

/// How the colour planes are sampled: half in both directions, half across, in full.
enum class Chroma { quarter, half, full };

/// One plane of samples in somebody else's memory. The stride counts bytes.
struct Plane {
  const std::uint8_t* data = nullptr;
  int stride = 0;
  Size size;

  Plane part(int x, int y, Size partSize) const noexcept {
    return {data + static_cast<std::ptrdiff_t>(y) * stride + x, stride, partSize};
  }
};

/// Y, U and V. Unless something else is said, a sample is one byte.
struct Planes {
  std::array<Plane, 3> planes;
  Chroma chroma = Chroma::quarter;

  Size size() const noexcept { return planes[0].size; }
};

/// How a picture is stored: it is mirrored left to right first, then turned clockwise.
struct Orientation {
  int quarterTurns = 0;
  bool mirrored = false;

  bool upright() const noexcept { return quarterTurns == 0 && !mirrored; }
  bool swapsSides() const noexcept { return quarterTurns % 2 != 0; }
  Size apply(Size size) const noexcept {
    return swapsSides() ? Size{size.height, size.width} : size;
  }
};

/// The size of the colour planes of a picture.
Size chromaSize(Size picture, Chroma chroma) noexcept;

/// Bytes that one picture's planes take, one after the other without gaps.
std::size_t bytesOf(Size picture, Chroma chroma) noexcept;

/// The planes of a picture that lie one after the other from `memory`.
Planes planesIn(const std::uint8_t* memory, Size picture, Chroma chroma) noexcept;

/// The planes of `part`, its corner moved to where the colour planes can be cut.
Planes crop(const Planes& source, const PixelRect& part) noexcept;

/// Scales each plane to a picture of `target` in `memory`, which holds `bytesOf(target, chroma)`
/// and does not overlap the source. **Fails** with std::bad_alloc.
Planes scaleInto(const Planes& source, Size target, Chroma chroma, std::uint8_t* memory);

/// Mirrors and turns into `memory`. Colour sampled by half across cannot change sides: such a
/// picture is brought to another sampling first. **Fails** with std::bad_alloc.
Planes orientInto(const Planes& source, Orientation orientation, std::uint8_t* memory);

/// Copies planes of 10-bit samples (in 16 bits each) to 8 bits in `memory`.
Planes reduceInto(const Planes& deep, std::uint8_t* memory) noexcept;

}  // namespace lenslark::video
