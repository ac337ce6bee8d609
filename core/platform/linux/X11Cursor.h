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

  /// Takes an event in: when the pointer looks different it is fetched again.
  void handle(const xcb_generic_event_t& event);
  /// Asks where the pointer is, without waiting for the answer.
  void ask();
  /// Takes in where it is, as was asked or else is asked now.
  void follow();

  /// Whether it shows differently in a picture of `area` than when this was last asked.
  bool takeChange(const PixelRect& area);

  /// Draws the pointer over a picture of `area` of the screen that was scaled to `target`. Returns
  /// where it was drawn; empty when it is elsewhere.
  PixelRect draw(const PixelRect& area, const PixelSpan& target);

 private:
  void fetch();
  PixelRect place() const;

  const X11Connection& x_;
  std::shared_ptr<PixelBuffer> image_;
  int hotX_ = 0;
  int hotY_ = 0;
  std::optional<xcb_query_pointer_cookie_t> asked_;
  int x0_ = -1;
  int y0_ = -1;

  // As it was when a change was last asked for.
  PixelRect shown_;
  bool fetched_ = false;

  // The image as it was last scaled.
  std::shared_ptr<PixelBuffer> scaled_;
};

}  // namespace lenslark
