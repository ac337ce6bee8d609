#include "config/OverlaySpec.h"

#include <gtest/gtest.h>

#include <limits>

namespace lenslark {
namespace {

TEST(AnchorTest, readsBackEveryRawValue) {
  for (const Anchor anchor : allAnchors) EXPECT_EQ(parseAnchor(rawValue(anchor)), anchor);
}

TEST(AnchorTest, hasItsNamesInTheirOrder) {
  std::vector<std::string_view> names;
  for (const Anchor anchor : allAnchors) names.push_back(rawValue(anchor));
  EXPECT_EQ(names, (std::vector<std::string_view>{"topLeft", "top", "topRight", "left", "center",
                                                  "right", "bottomLeft", "bottom", "bottomRight"}));
}

TEST(AnchorTest, takesRawValuesExactly) {
  for (const char* text : {"", "topleft", "top-left", "TopLeft", "middle"}) {
    EXPECT_EQ(parseAnchor(text), std::nullopt) << text;
  }
}

TEST(AnchorTest, readsWhatPeopleType) {
  for (const char* text : {"top-left", "TOP_LEFT", "TopLeft", "topleft", "-t-o_p_left-"}) {
    EXPECT_EQ(parseAnchorLoosely(text), Anchor::topLeft) << text;
  }
  EXPECT_EQ(parseAnchorLoosely("bottom-right"), Anchor::bottomRight);
  EXPECT_EQ(parseAnchorLoosely("CENTER"), Anchor::center);
}

TEST(AnchorTest, refusesLooseWordsThatAreNone) {
  for (const char* text : {"", "-", "middle", "top left", "bottomrigh", "topleft "}) {
    EXPECT_EQ(parseAnchorLoosely(text), std::nullopt) << text;
  }
}

TEST(OverlaySpecTest, holdsScaleAndOpacityInTheirRange) {
  const OverlaySpec extreme = OverlaySpec::clamped("m", Anchor::center, 0, 7);
  EXPECT_EQ(extreme.scale, 0.05);
  EXPECT_EQ(extreme.opacity, 1);
  const OverlaySpec other = OverlaySpec::clamped("m", Anchor::center, 1.5, -1);
  EXPECT_EQ(other.scale, 1);
  EXPECT_EQ(other.opacity, 0);
}

TEST(OverlaySpecTest, leavesWhatIsInRangeAsItIs) {
  const OverlaySpec overlay = OverlaySpec::clamped("m", Anchor::left, 0.3, 0.6, -2, 5);
  EXPECT_EQ(overlay, (OverlaySpec{"m", Anchor::left, 0.3, 0.6, -2, 5}));
}

TEST(OverlaySpecTest, takesWhatIsNoNumberForTheLowestValue) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  const OverlaySpec overlay = OverlaySpec::clamped("m", Anchor::left, nan, nan);
  EXPECT_EQ(overlay.scale, 0.05);
  EXPECT_EQ(overlay.opacity, 0);
}

}  // namespace
}  // namespace lenslark
