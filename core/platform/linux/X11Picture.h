#pragma once

#include <xcb/render.h>
#include <xcb/shm.h>

#include <cstdint>

#include "graphics/PixelView.h"
#include "platform/linux/X11Connection.h"

namespace lenslark {

/// A pixmap of the display's depth that the server draws into and we read: in memory that both
/// share where the server offers that, else fetched. It begins black.
class X11Picture {
 public:
  X11Picture(const X11Connection& x, Size size);
  ~X11Picture();
  X11Picture(const X11Picture&) = delete;
  X11Picture& operator=(const X11Picture&) = delete;

  xcb_pixmap_t pixmap() const noexcept { return pixmap_; }
  Size size() const noexcept { return size_; }

  /// Its pixels once all drawing asked for so far is done; null data when the server is gone. Alpha
  /// is arbitrary. Valid until the next drawing.
  PixelView read();

 private:
  bool attachMemory();
  void makeBlack() const;

  const X11Connection& x_;
  const Size size_;
  xcb_pixmap_t pixmap_;
  xcb_shm_seg_t segment_ = XCB_NONE;
  void* memory_ = nullptr;
  bool shared_ = false;
  XcbReply<xcb_get_image_reply_t> fetched_;
};

}  // namespace lenslark
