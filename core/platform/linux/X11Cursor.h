#pragma once

#include <memory>
#include <optional>

#include "graphics/PixelBuffer.h"
#include "platform/linux/X11Connection.h"

namespace lenslark {

/// The pointer: where it is and what it looks like.
class X11Cursor {
 public:
  explicit X11Cursor(const X11Connection& x);

  /// Whether the event says that the pointer looks different now; it is fetched again then.
  bool handle(const xcb_generic_event_t& event);

  /// Asks where the pointer is. Returns whether it moved since the last time.
  bool follow();

  /// Draws the pointer over a picture of `area` of the screen that was scaled to `target`.
  void draw(const PixelRect& area, const PixelSpan& target);

 private:
  void fetch();

  const X11Connection& x_;
  std::shared_ptr<PixelBuffer> image_;
  int hotX_ = 0;
  int hotY_ = 0;
  int x0_ = -1;
  int y0_ = -1;

  // The image as it was last scaled.
  std::shared_ptr<PixelBuffer> scaled_;
};

}  // namespace lenslark
