#include "platform/linux/X11Cursor.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "graphics/Compositor.h"

namespace lenslark {

X11Cursor::X11Cursor(const X11Connection& x) : x_(x) {
  xcb_xfixes_select_cursor_input(x.get(), x.root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
  fetch();
  follow();
}

void X11Cursor::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7F) == x_.xfixesEvents() + XCB_XFIXES_CURSOR_NOTIFY) fetch();
}

void X11Cursor::ask() {
  if (!asked_) asked_ = xcb_query_pointer(x_.get(), x_.root());
}

void X11Cursor::follow() {
  ask();
  const auto pointer = x_.reply(xcb_query_pointer_reply, *asked_);
  asked_.reset();
  if (!pointer) return;
  x0_ = pointer->root_x;
  y0_ = pointer->root_y;
}

PixelRect X11Cursor::place() const {
  const Size size = image_ ? image_->size() : Size{};
  return {x0_ - hotX_, y0_ - hotY_, size.width, size.height};
}

bool X11Cursor::takeChange(const PixelRect& area) {
  const PixelRect before = std::exchange(shown_, place());
  const bool fetched = std::exchange(fetched_, false);
  if (before == shown_ && !fetched) return false;
  const auto meets = [&area](const PixelRect& rect) {
    return rect.x < area.x + area.width && rect.x + rect.width > area.x &&
           rect.y < area.y + area.height && rect.y + rect.height > area.y;
  };
  return meets(before) || meets(shown_);
}

void X11Cursor::fetch() {
  scaled_ = nullptr;
  image_ = nullptr;
  fetched_ = true;
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

PixelRect X11Cursor::draw(const PixelRect& area, const PixelSpan& target) {
  if (image_ == nullptr || area.size().empty()) return {};
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
  const int left = std::max(x, 0);
  const int top = std::max(y, 0);
  const int right = std::min(x + size.width, target.size.width);
  const int bottom = std::min(y + size.height, target.size.height);
  if (left >= right || top >= bottom) return {};
  return {left, top, right - left, bottom - top};
}

}  // namespace lenslark
