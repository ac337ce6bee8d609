#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace lenslark {

/// Where an overlay sits in the frame.
enum class Anchor { topLeft, top, topRight, left, center, right, bottomLeft, bottom, bottomRight };

inline constexpr std::array allAnchors{Anchor::topLeft,    Anchor::top,    Anchor::topRight,
                                       Anchor::left,       Anchor::center, Anchor::right,
                                       Anchor::bottomLeft, Anchor::bottom, Anchor::bottomRight};

/// "topLeft" and so on, as the configuration has it.
std::string_view rawValue(Anchor anchor) noexcept;
std::optional<Anchor> parseAnchor(std::string_view rawValue) noexcept;
/// As people type it: any letter case, with "-" and "_" anywhere.
std::optional<Anchor> parseAnchorLoosely(std::string_view text);

/// An image laid over a camera's picture.
struct OverlaySpec {
  std::string media;  ///< Id of an image in the media library.
  Anchor anchor = Anchor::bottomRight;
  double scale = 0.25;      ///< Longer side as a fraction of the frame's shorter side.
  double opacity = 1;       ///< 0 (invisible) to 1 (opaque).
  std::optional<double> x;  ///< Centre, as fractions from the left and top edge; both or neither
  std::optional<double> y;  ///< count.

  /// With the scale held in 0.05...1 and the opacity in 0...1. Plain initialisation (and decoding)
  /// keeps values as they are.
  static OverlaySpec clamped(std::string media, Anchor anchor, double scale, double opacity,
                             std::optional<double> x = {}, std::optional<double> y = {});

  friend bool operator==(const OverlaySpec&, const OverlaySpec&) = default;
};

}  // namespace lenslark
