#include "codecs/image/PangoTextRenderer.h"

#include <cairo.h>
#include <fmt/core.h>
#include <pango/pangocairo.h>

#include <memory>
#include <mutex>

#include "base/Error.h"
#include "base/HeldThreads.h"
#include "base/PosixError.h"

namespace lenslark {
namespace {

struct Release {
  void operator()(cairo_surface_t* surface) const noexcept { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const noexcept { cairo_destroy(context); }
  void operator()(cairo_font_options_t* options) const noexcept {
    cairo_font_options_destroy(options);
  }
  void operator()(PangoFontDescription* font) const noexcept { pango_font_description_free(font); }
  void operator()(PangoFontMap* map) const noexcept { g_object_unref(map); }
  void operator()(PangoContext* context) const noexcept { g_object_unref(context); }
  void operator()(PangoLayout* layout) const noexcept { g_object_unref(layout); }
};
template <typename T>
using Owned = std::unique_ptr<T, Release>;

Owned<PangoContext> makeContext(PangoFontMap* fonts) {
  Owned<PangoContext> context(pango_font_map_create_context(fonts));
  // Pens move by fractions of a pixel; whoever puts the letters together rounds once.
  pango_context_set_round_glyph_positions(context.get(), FALSE);
  const Owned<cairo_font_options_t> options(cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_SLIGHT);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context.get(), options.get());
  return context;
}

void paint(PangoLayoutLine* line, GlyphMask& mask) {
  const Owned<cairo_surface_t> surface(
      cairo_image_surface_create(CAIRO_FORMAT_A8, mask.width, mask.height));
  const Owned<cairo_t> context(cairo_create(surface.get()));
  cairo_move_to(context.get(), -mask.left, mask.top);
  pango_cairo_show_layout_line(context.get(), line);
  cairo_surface_flush(surface.get());
  const cairo_status_t status = cairo_status(context.get());
  if (status != CAIRO_STATUS_SUCCESS) {
    throw Error(fmt::format("text cannot be drawn: {}", cairo_status_to_string(status)));
  }
  const unsigned char* pixels = cairo_image_surface_get_data(surface.get());
  const std::ptrdiff_t stride = cairo_image_surface_get_stride(surface.get());
  for (int y = 0; y < mask.height; ++y) {
    const unsigned char* row = pixels + y * stride;
    mask.coverage.insert(mask.coverage.end(), row, row + mask.width);
  }
}

GlyphMask renderCharacter(PangoLayout* layout, char character) {
  pango_layout_set_text(layout, &character, 1);
  PangoLayoutLine* line = pango_layout_get_line_readonly(layout, 0);
  // Extents are measured from the pen on the base line, y downwards.
  PangoRectangle ink;
  PangoRectangle logical;
  pango_layout_line_get_extents(line, &ink, &logical);
  GlyphMask mask;
  mask.advance = static_cast<double>(logical.width) / PANGO_SCALE;
  if (ink.width <= 0 || ink.height <= 0) return mask;
  pango_extents_to_pixels(&ink, nullptr);
  // Anti-aliasing may touch one pixel more than the outline does.
  mask.left = ink.x - 1;
  mask.top = 1 - ink.y;
  mask.width = ink.width + 2;
  mask.height = ink.height + 2;
  paint(line, mask);
  return mask;
}

/// Pango starts threads of its own, and ends the process when it gets none.
void requireThreads() {
  constexpr std::size_t plenty = 6;
  if (HeldThreads(plenty).count() < plenty) throw threadShortage();
}

}  // namespace

std::vector<GlyphMask> PangoTextRenderer::render(const std::string& font, double size,
                                                 std::string_view characters) {
  constexpr double largestSize = 4096;
  if (!(size > 0 && size <= largestSize)) throw Error("letters cannot be drawn at that size");
  // Cairo 1.16 changes what the font maps of all threads share without a lock.
  static std::mutex oneAtATime;
  const std::lock_guard lock(oneAtATime);
  requireThreads();
  // A font map belongs to one thread at a time, and callers come from any.
  const Owned<PangoFontMap> fonts(pango_cairo_font_map_new());
  const Owned<PangoContext> context = makeContext(fonts.get());
  const Owned<PangoFontDescription> description(pango_font_description_from_string(font.c_str()));
  pango_font_description_set_absolute_size(description.get(), size * PANGO_SCALE);
  const Owned<PangoLayout> layout(pango_layout_new(context.get()));
  pango_layout_set_font_description(layout.get(), description.get());

  std::vector<GlyphMask> masks;
  masks.reserve(characters.size());
  for (const char character : characters) {
    if (character < ' ' || character > '~') throw Error("only printable ASCII can be drawn");
    masks.push_back(renderCharacter(layout.get(), character));
  }
  return masks;
}

}  // namespace lenslark
