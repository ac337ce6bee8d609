#pragma once

#include <xcb/xcb.h>

#include <optional>
#include <string>

namespace lenslark {

/// How an X server hands out the pixels of a screen.
struct X11PixelFormat {
  int depth = 0;         ///< Bits that mean something.
  int bitsPerPixel = 0;  ///< Bits that a pixel takes in memory; 0 when the server does not say.
  bool ourByteOrder = true;

  static X11PixelFormat of(const xcb_setup_t& setup, const xcb_screen_t& screen) noexcept;

  /// Why such pixels cannot be filmed and what to do about it; nothing when they can.
  std::optional<std::string> problem() const;
};

}  // namespace lenslark
