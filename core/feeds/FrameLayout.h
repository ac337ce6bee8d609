#pragma once

#include <optional>

#include "config/OverlaySpec.h"
#include "graphics/Geometry.h"

/// Where things lie in the frames of a feed: rules of geometry without pixels.
/// **Threads**: any.
namespace lenslark::FrameLayout {

/// An emulator's camera expects this landscape frame, and shows the middle of it upright.
inline constexpr Size androidCanvas{1280, 960};
inline constexpr PixelRect androidStrip{280, 0, 720, 960};

/// A frame to be written and where the picture lies in it. What the picture leaves is black.
struct Plan {
  Size output;
  Placement picture;

  bool leavesBars() const noexcept { return picture.target.size() != output; }
  friend bool operator==(const Plan&, const Plan&) = default;
};

/// The picture as it is, held to `maxSide` and cut to even sides: what an odd side has too much is
/// cut at the top and on the right. Nothing when less than two pixels of a side would be left.
std::optional<Plan> planWhole(Size picture, int maxSide) noexcept;

/// The picture in the upright strip of the emulator's canvas, which is held to `maxSide` likewise.
std::optional<Plan> planOnCanvas(Size picture, bool fill, int maxSide) noexcept;

/// The part of a frame that a camera application surely shows, in coordinates that start at the
/// bottom left: overlays keep to it.
Rect overlayRegion(Size frame, bool android, bool fill) noexcept;

/// Where an overlay of this size lies, in the region's coordinates. Empty when nothing of it would
/// be seen.
Rect overlayRect(Size overlay, const OverlaySpec& spec, const Rect& region) noexcept;

/// The same in pixels of a frame, from the top left: the part of the overlay that lies inside the
/// frame, and where it goes. Nothing when none does.
std::optional<Placement> placeOverlay(Size overlay, const OverlaySpec& spec, const Rect& region,
                                      Size frame) noexcept;

}  // namespace lenslark::FrameLayout
