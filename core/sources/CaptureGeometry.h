#pragma once

#include <vector>

#include "graphics/Geometry.h"
#include "platform/Screen.h"

/// Which part of which display is filmed for a window. Global screen coordinates, y downwards.
namespace lenslark::CaptureGeometry {

/// Where a display stream looks and how large its pictures are.
struct Capture {
  Rect source;  ///< In the display's own coordinates.
  Size output;

  friend bool operator==(const Capture&, const Capture&) = default;
};

/// The display of a window: the first that holds the centre of its rectangle, else the one that it
/// covers most (the first of equal ones). Null when it lies off every display.
const DisplayInfo* display(const Rect& window, const std::vector<DisplayInfo>& displays) noexcept;

/// What an emulator's camera films: a landscape rectangle around the window's centre, 4/3 of the
/// window's width high and 16/9 of it wide.
Rect androidArea(const Rect& window) noexcept;

/// Moved into the display where it fits, cut to it where it does not; a corner of 16 x 16 where
/// nothing is left. The pictures' longer side is 1280, both sides are even.
Capture capture(const Rect& window, bool android, const Rect& display) noexcept;

}  // namespace lenslark::CaptureGeometry
