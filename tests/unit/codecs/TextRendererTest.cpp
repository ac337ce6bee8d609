#include "codecs/TextRenderer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/Error.h"
#include "codecs/Modules.h"

namespace lenslark {
namespace {

constexpr const char* monospace = "DejaVu Sans Mono Bold";

std::uint8_t darkest(const GlyphMask& mask) {
  return mask.coverage.empty() ? std::uint8_t{0}
                               : *std::max_element(mask.coverage.begin(), mask.coverage.end());
}

TEST(TextRendererTest, rendersOneMaskForEachCharacter) {
  const auto masks = Modules::textRenderer().render(monospace, 36, "0:A");
  ASSERT_EQ(masks.size(), 3U);
  for (const GlyphMask& mask : masks) {
    EXPECT_EQ(mask.coverage.size(), static_cast<std::size_t>(mask.width * mask.height));
    EXPECT_EQ(darkest(mask), 255);
  }
}

TEST(TextRendererTest, advancesEveryLetterOfAMonospacedFontEqually) {
  const auto masks = Modules::textRenderer().render(monospace, 40, "iW. ");
  for (const GlyphMask& mask : masks) EXPECT_NEAR(mask.advance, masks[0].advance, 0.01);
  // DejaVu Sans Mono is 1233/2048 of an em wide.
  EXPECT_NEAR(masks[0].advance, 40 * 1233.0 / 2048, 0.5);
}

TEST(TextRendererTest, givesASpaceNoPixelsButAnAdvance) {
  const auto masks = Modules::textRenderer().render(monospace, 40, " ");
  EXPECT_EQ(masks.at(0).width, 0);
  EXPECT_GT(masks.at(0).advance, 10);
}

TEST(TextRendererTest, standsCapitalsOnTheBaseLine) {
  const GlyphMask mask = Modules::textRenderer().render(monospace, 100, "L").at(0);
  // Capitals of this font are 0.73 em high; the mask has a pixel of margin.
  EXPECT_NEAR(mask.top, 73, 3);
  EXPECT_NEAR(mask.height - mask.top, 1, 1);
  // An L is inked at its bottom right and empty at its top right.
  const auto at = [&](int x, int y) {
    return mask.coverage[static_cast<std::size_t>(y * mask.width + x)];
  };
  EXPECT_EQ(at(mask.width - 5, mask.height - 6), 255);
  EXPECT_EQ(at(mask.width - 5, 10), 0);
}

TEST(TextRendererTest, servesSomeFontForAnUnknownFamily) {
  EXPECT_EQ(darkest(Modules::textRenderer().render("No Such Family Bold", 30, "8").at(0)), 255);
}

TEST(TextRendererTest, refusesSizesAndCharactersThatCannotBeDrawn) {
  EXPECT_THROW(Modules::textRenderer().render(monospace, 0, "a"), Error);
  EXPECT_THROW(Modules::textRenderer().render(monospace, 1e9, "a"), Error);
  EXPECT_THROW(Modules::textRenderer().render(monospace, 20, "\n"), Error);
}

}  // namespace
}  // namespace lenslark
