#include "platform/linux/X11Connection.h"

#include <fmt/core.h>
#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/render.h>
#include <xcb/res.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include "platform/Screen.h"
#include "platform/linux/X11PixelFormat.h"

namespace lenslark {

X11Connection::X11Connection() {
  const auto problem = X11PixelFormat::of(*xcb_get_setup(get()), screen()).problem();
  if (problem) throw CaptureError::unavailable(*problem);
  requireExtensions();
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
