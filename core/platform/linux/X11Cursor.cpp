#include "platform/linux/X11Cursor.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "graphics/Compositor.h"

namespace lenslark {

X11Cursor::X11Cursor(const X11Connection& x) : x_(x) {
  xcb_xfixes_select_cursor_input(x.get(), x.root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
  fetch();
  follow();
}

bool X11Cursor::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7F) != x_.xfixesEvents() + XCB_XFIXES_CURSOR_NOTIFY) return false;
  fetch();
  return true;
}

bool X11Cursor::follow() {
  const auto pointer = x_.ask(xcb_query_pointer, xcb_query_pointer_reply, x_.root());
  if (!pointer) return false;
  const bool moved = pointer->root_x != x0_ || pointer->root_y != y0_;
  x0_ = pointer->root_x;
  y0_ = pointer->root_y;
  return moved;
}

void X11Cursor::fetch() {
  scaled_ = nullptr;
  image_ = nullptr;
  const auto answer = x_.ask(xcb_xfixes_get_cursor_image, xcb_xfixes_get_cursor_image_reply);
  if (!answer || answer->width == 0 || answer->height == 0) return;
  image_ = std::make_shared<PixelBuffer>(Size{answer->width, answer->height});
  // Words of premultiplied ARGB in this machine's byte order: BGRA bytes, as ours.
  const PixelSpan span = image_->span();
  const std::uint32_t* pixels = xcb_xfixes_get_cursor_image_cursor_image(answer.get());
  const std::size_t rowBytes = static_cast<std::size_t>(answer->width) * 4;
  for (int y = 0; y < span.size.height; ++y) {
    std::memcpy(span.row(y), pixels + static_cast<std::ptrdiff_t>(y) * answer->width, rowBytes);
  }
  hotX_ = answer->xhot;
  hotY_ = answer->yhot;
}

void X11Cursor::draw(const PixelRect& area, const PixelSpan& target) {
  if (image_ == nullptr || area.size().empty()) return;
  const double scaleX = static_cast<double>(target.size.width) / area.width;
  const double scaleY = static_cast<double>(target.size.height) / area.height;
  const auto scaledSide = [](int side, double scale) {
    return std::max(1, static_cast<int>(std::lround(side * scale)));
  };
  const Size size{scaledSide(image_->size().width, scaleX),
                  scaledSide(image_->size().height, scaleY)};
  if (scaled_ == nullptr || scaled_->size() != size) {
    scaled_ = std::make_shared<PixelBuffer>(size);
    Compositor::scale(image_->view(), scaled_->span());
  }
  const int x = static_cast<int>(std::lround((x0_ - hotX_ - area.x) * scaleX));
  const int y = static_cast<int>(std::lround((y0_ - hotY_ - area.y) * scaleY));
  Compositor::blend(scaled_->view(), target, x, y, true);
}

}  // namespace lenslark
