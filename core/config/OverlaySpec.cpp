#include "config/OverlaySpec.h"

#include <algorithm>

#include "base/Text.h"

namespace lenslark {
namespace {

constexpr std::array<std::string_view, allAnchors.size()> anchorNames{
    "topLeft", "top", "topRight", "left", "center", "right", "bottomLeft", "bottom", "bottomRight"};

/// As std::clamp, but what is no number becomes the lower bound.
double held(double value, double low, double high) {
  return value > low ? std::min(value, high) : low;
}

}  // namespace

std::string_view rawValue(Anchor anchor) noexcept {
  return anchorNames[static_cast<std::size_t>(anchor)];
}

std::optional<Anchor> parseAnchor(std::string_view rawValue) noexcept {
  const auto* name = std::ranges::find(anchorNames, rawValue);
  if (name == anchorNames.end()) return std::nullopt;
  return allAnchors[static_cast<std::size_t>(name - anchorNames.begin())];
}

std::optional<Anchor> parseAnchorLoosely(std::string_view text) {
  std::string word = Text::lowercase(text);
  std::erase_if(word, [](char character) { return character == '-' || character == '_'; });
  for (const Anchor anchor : allAnchors) {
    if (word == Text::lowercase(rawValue(anchor))) return anchor;
  }
  return std::nullopt;
}

OverlaySpec OverlaySpec::clamped(std::string media, Anchor anchor, double scale, double opacity,
                                 std::optional<double> x, std::optional<double> y) {
  constexpr double smallestScale = 0.05;
  return {.media = std::move(media),
          .anchor = anchor,
          .scale = held(scale, smallestScale, 1),
          .opacity = held(opacity, 0, 1),
          .x = x,
          .y = y};
}

}  // namespace lenslark
