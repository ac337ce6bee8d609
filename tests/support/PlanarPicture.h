#pragma once

#include <atomic>

#include "graphics/Compositor.h"
#include "graphics/Frame.h"

namespace lenslark {

/// A picture that is not in memory yet, of one colour, and counts how often it was drawn.
class PlanarPicture final : public Frame {
 public:
  static constexpr Compositor::Color color{1, 2, 3, 255};

  explicit PlanarPicture(Size size) : size_(size) {}

  Size size() const noexcept override { return size_; }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect&, const PixelSpan& target) const noexcept override {
    ++drawn;
    Compositor::fill(target, color);
    return drawable;
  }

  mutable std::atomic<int> drawn = 0;
  bool drawable = true;

 private:
  Size size_;
};

}  // namespace lenslark
