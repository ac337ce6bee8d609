#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>

#include "graphics/PixelBuffer.h"
#include "platform/Screen.h"
#include "support/Eventually.h"

namespace lenslark {

inline constexpr std::uint32_t red = 0xFF0000;
inline constexpr std::uint32_t green = 0x00FF00;
inline constexpr std::uint32_t blue = 0x0000FF;
inline constexpr std::uint32_t white = 0xFFFFFF;
inline constexpr std::uint32_t grey = 0x808080;

inline std::uint32_t colourAt(const Frame& frame, int x, int y) {
  const PixelView view = frame.pixelBuffer()->view();
  const std::uint8_t* pixel = view.row(y) + static_cast<std::ptrdiff_t>(x) * 4;
  return static_cast<std::uint32_t>(pixel[2] << 16 | pixel[1] << 8 | pixel[0]);
}

inline bool holds(const Frame& frame, std::uint32_t colour) {
  const PixelView view = frame.pixelBuffer()->view();
  for (int y = 0; y < view.size.height; ++y) {
    for (int x = 0; x < view.size.width; ++x) {
      if (colourAt(frame, x, y) == colour) return true;
    }
  }
  return false;
}

/// Keeps the latest picture, and whether a colour was ever seen.
class Film {
 public:
  explicit Film(std::uint32_t forbidden = 0x123456) : forbidden_(forbidden) {}

  Screen::FrameHandler onFrame() {
    return [this](const FramePtr& frame) {
      const bool seen = holds(*frame, forbidden_);
      const std::lock_guard lock(mutex_);
      last_ = frame;
      count_ += 1;
      if (seen) forbiddenFrames_ += 1;
    };
  }

  Screen::StopHandler onStop() {
    return [this](const Error& error) {
      const std::lock_guard lock(mutex_);
      stopped_ = error.what();
    };
  }

  FramePtr last() const {
    const std::lock_guard lock(mutex_);
    return last_;
  }
  int count() const {
    const std::lock_guard lock(mutex_);
    return count_;
  }
  int forbiddenFrames() const {
    const std::lock_guard lock(mutex_);
    return forbiddenFrames_;
  }
  std::string stopped() const {
    const std::lock_guard lock(mutex_);
    return stopped_;
  }

  bool shows(int x, int y, std::uint32_t colour) const {
    return eventually(
        [&] {
          const FramePtr frame = last();
          return frame && colourAt(*frame, x, y) == colour;
        },
        std::chrono::seconds(3));
  }

 private:
  const std::uint32_t forbidden_;
  mutable std::mutex mutex_;
  FramePtr last_;
  int count_ = 0;
  int forbiddenFrames_ = 0;
  std::string stopped_;
};

inline constexpr Screen::Request plain(int width, int height) {
  return {{width, height}, 30, false};
}

}  // namespace lenslark
