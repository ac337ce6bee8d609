#include "platform/linux/X11Connection.h"

#include <fmt/core.h>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/res.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <bit>

#include "platform/Screen.h"

namespace lenslark {

X11Connection::X11Connection() {
  requirePixelFormat();
  requireExtensions();
}

void X11Connection::requirePixelFormat() const {
  const xcb_setup_t* setup = xcb_get_setup(get());
  const bool ours = (setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST) ==
                    (std::endian::native == std::endian::little);
  int bits = 0;
  for (auto formats = xcb_setup_pixmap_formats_iterator(setup); formats.rem > 0;
       xcb_format_next(&formats)) {
    if (formats.data->depth == screen().root_depth) bits = formats.data->bits_per_pixel;
  }
  const bool deepEnough = screen().root_depth == 24 || screen().root_depth == 32;
  if (!ours || !deepEnough || bits != 32) {
    throw CaptureError::unavailable(
        fmt::format("the X display has pixels of {} bits, and only 24 bits in this machine's byte "
                    "order can be filmed",
                    screen().root_depth));
  }
}

void X11Connection::requireExtensions() {
  const auto require = [this](xcb_extension_t* extension, const char* name) {
    const xcb_query_extension_reply_t* found = xcb_get_extension_data(get(), extension);
    if (found == nullptr || !found->present) {
      throw CaptureError::unavailable(fmt::format("the X display lacks the {} extension", name));
    }
    return found->first_event;
  };
  require(&xcb_composite_id, "Composite");
  require(&xcb_render_id, "Render");
  damageEvents_ = require(&xcb_damage_id, "Damage");
  xfixesEvents_ = require(&xcb_xfixes_id, "XFixes");
  shapeEvents_ = require(&xcb_shape_id, "Shape");
  // The server refuses requests of extensions whose version was not agreed on.
  ask(xcb_composite_query_version, xcb_composite_query_version_reply, 0U, 4U);
  ask(xcb_damage_query_version, xcb_damage_query_version_reply, 1U, 1U);
  ask(xcb_xfixes_query_version, xcb_xfixes_query_version_reply, 5U, 0U);
  ask(xcb_render_query_version, xcb_render_query_version_reply, 0U, 11U);

  const xcb_query_extension_reply_t* shm = xcb_get_extension_data(get(), &xcb_shm_id);
  if (shm == nullptr || !shm->present) return;
  const auto version = ask(xcb_shm_query_version, xcb_shm_query_version_reply);
  hasShm_ = version != nullptr;
  hasSharedPixmaps_ =
      hasShm_ && version->shared_pixmaps && version->pixmap_format == XCB_IMAGE_FORMAT_Z_PIXMAP;
}

}  // namespace lenslark
