#pragma once

#include <cstdint>

#include "graphics/PixelBuffer.h"
#include "graphics/PixelView.h"

/// Pixel work on BGRA pictures. Nothing here keeps state.
/// **Fails** by returning false; the target's pixels are then undefined.
namespace lenslark::Compositor {

struct Color {
  std::uint8_t red = 0;
  std::uint8_t green = 0;
  std::uint8_t blue = 0;
  std::uint8_t alpha = 255;
};

/// Every byte as it is; the sizes must be equal.
void copy(const PixelView& source, const PixelSpan& target) noexcept;

/// What becomes of the alpha when a picture is scaled.
enum class Alpha : std::uint8_t {
  scaled,  ///< As the colours.
  opaque,  ///< 255 everywhere, as by `makeOpaque` afterwards, but cheaper.
};

/// The whole source to the whole target, with a filter that suits the ratio.
bool scale(const PixelView& source, const PixelSpan& target, Alpha alpha = Alpha::scaled) noexcept;

/// Draws no more than `part` of the target, which lies inside, as `scale` would draw it but
/// for the rounding of the last bit, and looks at no more of the source than that takes.
bool scalePart(const PixelView& source, const PixelSpan& target, const PixelRect& part,
               Alpha alpha = Alpha::scaled) noexcept;

void fill(const PixelSpan& target, const Color& color) noexcept;

/// Alpha 255 everywhere, colours as they are: a premultiplied picture laid over black.
void makeOpaque(const PixelSpan& target) noexcept;

/// Whether every pixel's alpha is 255.
bool isOpaque(const PixelView& picture) noexcept;

/// Lays a premultiplied picture over the target with its top left corner at (x, y); what stands
/// over the edges is left out. `targetOpaque` promises that the target's alpha is 255 everywhere,
/// which is faster; otherwise alpha is composed as well.
void blend(const PixelView& picture, const PixelSpan& target, int x, int y,
           bool targetOpaque) noexcept;

/// Multiplies all four channels with `opacity` (0...1): a premultiplied picture made translucent.
void fade(const PixelSpan& target, double opacity) noexcept;

}  // namespace lenslark::Compositor
