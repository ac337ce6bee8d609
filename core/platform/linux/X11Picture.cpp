#include "platform/linux/X11Picture.h"

#include <sys/ipc.h>
#include <sys/shm.h>

namespace lenslark {
namespace {

std::size_t bytesOf(Size size) {
  return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4;
}

std::uint16_t u16(int value) { return static_cast<std::uint16_t>(value); }

}  // namespace

X11Picture::X11Picture(const X11Connection& x, Size size)
    : x_(x), size_(size), pixmap_(xcb_generate_id(x.get())) {
  const bool attached = x.hasShm() && attachMemory();
  shared_ = attached && x.hasSharedPixmaps();
  if (shared_) {
    xcb_shm_create_pixmap(x.get(), pixmap_, x.root(), u16(size.width), u16(size.height),
                          x.screen().root_depth, segment_, 0);
  } else {
    xcb_create_pixmap(x.get(), x.screen().root_depth, pixmap_, x.root(), u16(size.width),
                      u16(size.height));
    makeBlack();
  }
}

X11Picture::~X11Picture() {
  xcb_free_pixmap(x_.get(), pixmap_);
  if (segment_ != XCB_NONE) xcb_shm_detach(x_.get(), segment_);
  if (memory_ != nullptr) ::shmdt(memory_);
}

/// The server's memory may still hold anybody's pixels; shared memory begins empty.
void X11Picture::makeBlack() const {
  const xcb_gcontext_t gc = xcb_generate_id(x_.get());
  const std::uint32_t black = 0;
  xcb_create_gc(x_.get(), gc, pixmap_, XCB_GC_FOREGROUND, &black);
  const xcb_rectangle_t all{0, 0, u16(size_.width), u16(size_.height)};
  xcb_poly_fill_rectangle(x_.get(), pixmap_, gc, 1, &all);
  xcb_free_gc(x_.get(), gc);
}

bool X11Picture::attachMemory() {
  const int id = ::shmget(IPC_PRIVATE, bytesOf(size_), IPC_CREAT | 0600);
  if (id < 0) return false;
  void* memory = ::shmat(id, nullptr, 0);
  bool attached = false;
  if (memory != reinterpret_cast<void*>(-1)) {
    memory_ = memory;
    segment_ = xcb_generate_id(x_.get());
    const auto cookie =
        xcb_shm_attach_checked(x_.get(), segment_, static_cast<std::uint32_t>(id), 0);
    const XcbReply<xcb_generic_error_t> error(xcb_request_check(x_.get(), cookie));
    attached = error == nullptr && !x_.broken();
    if (!attached) segment_ = XCB_NONE;
  }
  // The segment lives on while it is attached, and goes with the last of us however we end.
  ::shmctl(id, IPC_RMID, nullptr);
  return attached;
}

PixelView X11Picture::read() {
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(size_.width) * 4;
  if (shared_) {
    x_.sync();
    return {!x_.broken() ? static_cast<const std::uint8_t*>(memory_) : nullptr, size_, stride};
  }
  if (segment_ != XCB_NONE) {
    const auto image = x_.ask(xcb_shm_get_image, xcb_shm_get_image_reply, pixmap_, std::int16_t{0},
                              std::int16_t{0}, u16(size_.width), u16(size_.height), ~0U,
                              static_cast<std::uint8_t>(XCB_IMAGE_FORMAT_Z_PIXMAP), segment_, 0U);
    return {image ? static_cast<const std::uint8_t*>(memory_) : nullptr, size_, stride};
  }
  fetched_ = x_.ask(xcb_get_image, xcb_get_image_reply,
                    static_cast<std::uint8_t>(XCB_IMAGE_FORMAT_Z_PIXMAP), pixmap_, std::int16_t{0},
                    std::int16_t{0}, u16(size_.width), u16(size_.height), ~0U);
  const bool whole =
      fetched_ != nullptr &&
      static_cast<std::size_t>(xcb_get_image_data_length(fetched_.get())) >= bytesOf(size_);
  return {whole ? xcb_get_image_data(fetched_.get()) : nullptr, size_, stride};
}

}  // namespace lenslark
