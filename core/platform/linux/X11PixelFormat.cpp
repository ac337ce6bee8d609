#include "platform/linux/X11PixelFormat.h"

#include <fmt/core.h>

#include <bit>

namespace lenslark {

X11PixelFormat X11PixelFormat::of(const xcb_setup_t& setup, const xcb_screen_t& screen) noexcept {
  X11PixelFormat format{.depth = screen.root_depth,
                        .ourByteOrder = (setup.image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST) ==
                                        (std::endian::native == std::endian::little)};
  for (auto formats = xcb_setup_pixmap_formats_iterator(&setup); formats.rem > 0;
       xcb_format_next(&formats)) {
    if (formats.data->depth == format.depth) format.bitsPerPixel = formats.data->bits_per_pixel;
  }
  return format;
}

std::optional<std::string> X11PixelFormat::problem() const {
  if (depth != 24 && depth != 32) {
    return fmt::format(
        "the X display has pixels of {} bits, and only 24 can be filmed; give the X server a "
        "colour depth of 24 (DefaultDepth 24 in xorg.conf; for Xvfb, -screen 0 1280x720x24).",
        depth);
  }
  if (bitsPerPixel != 32) {
    return fmt::format(
        "the X display stores a pixel in {} bits, and only 32 can be filmed; start the X server "
        "with -fbbpp 32.",
        bitsPerPixel);
  }
  if (!ourByteOrder) {
    return "the X server's machine has another byte order than this one; run lenslark on the "
           "machine of the X server.";
  }
  return std::nullopt;
}

}  // namespace lenslark
