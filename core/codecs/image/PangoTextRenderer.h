#pragma once

#include "codecs/TextRenderer.h"

namespace lenslark {

/// Glyph masks from Pango and cairo.
class PangoTextRenderer final : public TextRenderer {
 public:
  std::vector<GlyphMask> render(const std::string& font, double size,
                                std::string_view characters) override;
};

}  // namespace lenslark
