#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/SerialQueue.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Renders the test pattern at a steady pace. Every frame differs from the one before, so that a
/// reader sees that the feed is alive.
///
/// **Threads**: `start` and `stop` one after the other; `onFrame` is called on the pattern's queue.
class TestPatternSource {
 public:
  using FrameHandler = FrameSource::Emit;

  /// `fps` is held within what a timer can keep up with, 1...240.
  TestPatternSource(int width, int height, int fps, std::string qrText, FrameHandler onFrame);
  ~TestPatternSource();

  /// **Fails** with Error when the QR text is too long. Where letters cannot be rendered the
  /// pattern runs without its caption, and `problem` tells why.
  void start();
  /// Returns when no further frame will come.
  void stop();

  std::optional<std::string> problem() const;

 private:
  struct Rendering;
  std::shared_ptr<Rendering> rendering_;
  SerialQueue queue_;
  RepeatingTimer timer_;
  std::chrono::nanoseconds period_;
};

}  // namespace lenslark
