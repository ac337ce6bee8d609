#include "feeds/FrameLayout.h"

#include <gtest/gtest.h>

#include <limits>

namespace lenslark {
namespace {

// Whole pictures.

struct WholeCase {
  Size picture;
  int maxSide;
  Size output;
  PixelRect shown;
};

TEST(FrameLayoutTest, wholePicturesShrinkAndBecomeEven) {
  constexpr WholeCase cases[]{
      {{4000, 3000}, 2048, {2048, 1536}, {0, 0, 4000, 3000}},
      {{3000, 4000}, 2048, {1536, 2048}, {0, 0, 3000, 4000}},
      {{1920, 1080}, 2048, {1920, 1080}, {0, 0, 1920, 1080}},
      {{2048, 2048}, 2048, {2048, 2048}, {0, 0, 2048, 2048}},
      // 5000 x 3333 * 2048/5000 = 2048 x 1365.2: the top 1.2 rows fall away, 3 of the source.
      {{5000, 3333}, 2048, {2048, 1364}, {0, 3, 5000, 3330}},
      // 3333 x 5000: the right 1.2 columns.
      {{3333, 5000}, 2048, {1364, 2048}, {0, 0, 3330, 5000}},
      // Sides that a division and a multiplication bring back a little too small.
      {{3 * 2048, 2048}, 2048, {2048, 682}, {0, 2, 6144, 2046}},
      {{4097, 4097}, 2047, {2046, 2046}, {0, 2, 4095, 4095}},
  };
  for (const WholeCase& test : cases) {
    const auto plan = FrameLayout::planWhole(test.picture, test.maxSide);
    ASSERT_TRUE(plan) << test.picture.width;
    EXPECT_EQ(plan->output, test.output) << test.picture.width;
    EXPECT_EQ(plan->picture.source, test.shown) << test.picture.width;
    EXPECT_EQ(plan->picture.target, (PixelRect{0, 0, test.output.width, test.output.height}));
    EXPECT_FALSE(plan->leavesBars());
  }
}

TEST(FrameLayoutTest, oddSidesLoseTheTopRowAndTheRightColumn) {
  const auto plan = FrameLayout::planWhole({101, 57}, 2048);
  ASSERT_TRUE(plan);
  EXPECT_EQ(plan->output, (Size{100, 56}));
  EXPECT_EQ(plan->picture.source, (PixelRect{0, 1, 100, 56}));
}

TEST(FrameLayoutTest, everySideDownToTheCapIsExact) {
  // 1 / n * n in floating point is less than one for some n: no side may come out two short.
  for (int side = 2049; side < 12000; ++side) {
    const auto plan = FrameLayout::planWhole({side, side}, 2048);
    ASSERT_TRUE(plan);
    ASSERT_EQ(plan->output, (Size{2048, 2048})) << side;
    ASSERT_EQ(plan->picture.source, (PixelRect{0, 0, side, side})) << side;
  }
}

TEST(FrameLayoutTest, lessThanTwoPixelsMakeNoFrame) {
  EXPECT_FALSE(FrameLayout::planWhole({1, 100}, 2048));
  EXPECT_FALSE(FrameLayout::planWhole({100, 1}, 2048));
  EXPECT_FALSE(FrameLayout::planWhole({100000, 90}, 2048));
  EXPECT_FALSE(FrameLayout::planWhole({}, 2048));
}

// The emulator's canvas.

struct CanvasCase {
  Size picture;
  bool fill;
  PixelRect source;
  PixelRect target;
};

TEST(FrameLayoutTest, theCanvasShowsThePictureInItsUprightStrip) {
  constexpr CanvasCase cases[]{
      {{1920, 1080}, true, {555, 0, 810, 1080}, {280, 0, 720, 960}},
      {{1920, 1080}, false, {0, 0, 1920, 1080}, {280, 277, 720, 405}},
      {{1080, 1920}, true, {0, 240, 1080, 1440}, {280, 0, 720, 960}},
      {{1080, 1920}, false, {0, 0, 1080, 1920}, {370, 0, 540, 960}},
      {{720, 960}, true, {0, 0, 720, 960}, {280, 0, 720, 960}},
      {{720, 960}, false, {0, 0, 720, 960}, {280, 0, 720, 960}},
      {{36, 48}, false, {0, 0, 36, 48}, {280, 0, 720, 960}},
  };
  for (const CanvasCase& test : cases) {
    const auto plan = FrameLayout::planOnCanvas(test.picture, test.fill, 2048);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->output, (Size{1280, 960}));
    EXPECT_EQ(plan->picture.source, test.source) << test.picture.width << test.fill;
    EXPECT_EQ(plan->picture.target, test.target) << test.picture.width << test.fill;
    EXPECT_TRUE(plan->leavesBars());
  }
}

TEST(FrameLayoutTest, theCanvasKeepsToTheCapToo) {
  const auto plan = FrameLayout::planOnCanvas({720, 960}, true, 640);
  ASSERT_TRUE(plan);
  EXPECT_EQ(plan->output, (Size{640, 480}));
  EXPECT_EQ(plan->picture.target, (PixelRect{140, 0, 360, 480}));
  // 1280 x 960 * 100/1280 = 100 x 75: the top row falls away.
  const auto small = FrameLayout::planOnCanvas({720, 960}, true, 100);
  ASSERT_TRUE(small);
  EXPECT_EQ(small->output, (Size{100, 74}));
  EXPECT_EQ(small->picture.target, (PixelRect{22, 0, 56, 74}));
}

// The overlay's region: origin at the bottom left.

TEST(FrameLayoutTest, aFittedFrameIsOneRegion) {
  EXPECT_EQ(FrameLayout::overlayRegion({1920, 1080}, false, false), (Rect{0, 0, 1920, 1080}));
}

TEST(FrameLayoutTest, aFilledWideFrameShowsItsMiddleUpright) {
  EXPECT_EQ(FrameLayout::overlayRegion({1920, 1080}, false, true), (Rect{656.25, 0, 607.5, 1080}));
}

TEST(FrameLayoutTest, aFilledTallFrameShowsItsMiddle) {
  EXPECT_EQ(FrameLayout::overlayRegion({600, 1000}, false, true), (Rect{18.75, 100, 562.5, 800}));
  EXPECT_EQ(FrameLayout::overlayRegion({300, 1000}, false, true), (Rect{0, 300, 300, 400}));
}

TEST(FrameLayoutTest, anEmulatorShowsTheStrip) {
  for (const bool fill : {false, true}) {
    EXPECT_EQ(FrameLayout::overlayRegion({1280, 960}, true, fill), (Rect{280, 0, 720, 960}));
    EXPECT_EQ(FrameLayout::overlayRegion({400, 960}, true, fill), (Rect{0, 0, 400, 960}));
  }
}

// The overlay in a region of 1000 x 500 that starts at (100, 50): S = 500, margin 20.

constexpr Rect region{100, 50, 1000, 500};

OverlaySpec at(Anchor anchor, double scale = 0.5) {
  return {.media = "m", .anchor = anchor, .scale = scale};
}

TEST(FrameLayoutTest, overlaysHangOnTheirAnchors) {
  // 200 x 100 at half of S: 250 x 125.
  constexpr double left = 120;
  constexpr double middle = 475;
  constexpr double right = 830;
  constexpr double top = 405;
  constexpr double center = 237.5;
  constexpr double bottom = 70;
  const std::pair<Anchor, Rect> cases[]{
      {Anchor::topLeft, {left, top, 250, 125}},
      {Anchor::top, {middle, top, 250, 125}},
      {Anchor::topRight, {right, top, 250, 125}},
      {Anchor::left, {left, center, 250, 125}},
      {Anchor::center, {middle, center, 250, 125}},
      {Anchor::right, {right, center, 250, 125}},
      {Anchor::bottomLeft, {left, bottom, 250, 125}},
      {Anchor::bottom, {middle, bottom, 250, 125}},
      {Anchor::bottomRight, {right, bottom, 250, 125}},
  };
  for (const auto& [anchor, rect] : cases) {
    EXPECT_EQ(FrameLayout::overlayRect({200, 100}, at(anchor), region), rect) << rawValue(anchor);
  }
}

TEST(FrameLayoutTest, theLongerSideOfAnOverlayIsScaled) {
  EXPECT_EQ(FrameLayout::overlayRect({100, 200}, at(Anchor::bottomLeft), region),
            (Rect{120, 70, 125, 250}));
}

TEST(FrameLayoutTest, aPlaceCountsFromTheLeftAndTheTop) {
  OverlaySpec spec = at(Anchor::topLeft);
  spec.x = 0.25;
  spec.y = 0.3;
  // Centre at 100 + 250, 550 - 150.
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, spec, region), (Rect{225, 337.5, 250, 125}));
}

TEST(FrameLayoutTest, aPlaceInTheMiddleIsTheMiddle) {
  OverlaySpec spec = at(Anchor::bottomRight);
  spec.x = 0.5;
  spec.y = 0.5;
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, spec, region),
            FrameLayout::overlayRect({200, 100}, at(Anchor::center), region));
}

TEST(FrameLayoutTest, aPlaceInTheCornerTouchesBothEdges) {
  OverlaySpec spec = at(Anchor::center);
  spec.x = 1;
  spec.y = 0;
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, spec, region), (Rect{850, 425, 250, 125}));
  spec.x = 0;
  spec.y = 1;
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, spec, region), (Rect{100, 50, 250, 125}));
}

TEST(FrameLayoutTest, halfAPlaceIsNone) {
  OverlaySpec spec = at(Anchor::topLeft);
  spec.x = 0.9;
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, spec, region),
            FrameLayout::overlayRect({200, 100}, at(Anchor::topLeft), region));
}

TEST(FrameLayoutTest, anchoredOverlaysStayInsideTheRegionAsWell) {
  // At full scale a square is as high as the region: the margin gives way.
  EXPECT_EQ(FrameLayout::overlayRect({50, 50}, at(Anchor::topLeft, 1), region),
            (Rect{120, 50, 500, 500}));
}

TEST(FrameLayoutTest, whatIsLargerThanTheRegionStandsOverItsLowerEdges) {
  // 1200 x 600 in 1000 x 500: the upper bound is applied last.
  EXPECT_EQ(FrameLayout::overlayRect({200, 100}, at(Anchor::center, 2.4), region),
            (Rect{-100, -50, 1200, 600}));
}

TEST(FrameLayoutTest, anOverlayWithoutASizeIsNowhere) {
  EXPECT_TRUE(FrameLayout::overlayRect({0, 100}, at(Anchor::top), region).empty());
  EXPECT_TRUE(FrameLayout::overlayRect({10, 10}, at(Anchor::top, 0), region).empty());
  EXPECT_TRUE(FrameLayout::overlayRect({10, 10}, at(Anchor::top, -1), region).empty());
}

// In pixels, from the top left.

TEST(FrameLayoutTest, theTopIsAtTheTop) {
  // Region 1000 x 500 is the whole frame: top left with a margin of 20.
  const auto placement =
      FrameLayout::placeOverlay({200, 100}, at(Anchor::topLeft), {0, 0, 1000, 500}, {1000, 500});
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->source, (PixelRect{0, 0, 200, 100}));
  EXPECT_EQ(placement->target, (PixelRect{20, 20, 250, 125}));
}

TEST(FrameLayoutTest, theBottomIsAtTheBottom) {
  const auto placement = FrameLayout::placeOverlay({200, 100}, at(Anchor::bottomRight),
                                                   {0, 0, 1000, 500}, {1000, 500});
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->target, (PixelRect{730, 355, 250, 125}));
}

TEST(FrameLayoutTest, roundedOverlaysStillTouchTheEdge) {
  OverlaySpec spec = at(Anchor::center, 0.201);
  spec.x = 1;
  spec.y = 0;
  // 100.5 x 50.25 from (899.5, top): edges are rounded, so none stands over.
  const auto placement =
      FrameLayout::placeOverlay({200, 100}, spec, {0, 0, 1000, 500}, {1000, 500});
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->target, (PixelRect{900, 0, 100, 50}));
}

TEST(FrameLayoutTest, aSliverOfAnOverlayKeepsAPixel) {
  const auto placement =
      FrameLayout::placeOverlay({1000, 1}, at(Anchor::center, 0.1), {0, 0, 1000, 500}, {1000, 500});
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->target.width, 50);
  EXPECT_EQ(placement->target.height, 1);
}

TEST(FrameLayoutTest, aGiantOverlayIsCutToTheFrame) {
  // 2000 x 1000 over 1000 x 500, its right and upper edges on the frame's: what is seen is the
  // right and upper half.
  const auto placement =
      FrameLayout::placeOverlay({200, 100}, at(Anchor::center, 4), {0, 0, 1000, 500}, {1000, 500});
  ASSERT_TRUE(placement);
  EXPECT_EQ(placement->source, (PixelRect{100, 0, 100, 50}));
  EXPECT_EQ(placement->target, (PixelRect{0, 0, 1000, 500}));
}

TEST(FrameLayoutTest, monstrousNumbersHarmNothing) {
  constexpr double most = std::numeric_limits<double>::max();
  for (const double scale : {1e6, 1e18, most, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN(), 1e-300}) {
    for (const double place : {-most, -1e9, 0.3, 1e9, most}) {
      OverlaySpec spec = at(Anchor::center, scale);
      spec.x = place;
      spec.y = place;
      const auto placement =
          FrameLayout::placeOverlay({200, 100}, spec, {0, 0, 1000, 500}, {1000, 500});
      if (!placement) continue;
      EXPECT_GE(placement->source.x, 0);
      EXPECT_LE(placement->source.x + placement->source.width, 200);
      EXPECT_GE(placement->source.width, 1);
      EXPECT_GE(placement->target.x, 0);
      EXPECT_LE(placement->target.x + placement->target.width, 1000);
      EXPECT_GE(placement->target.y, 0);
      EXPECT_LE(placement->target.y + placement->target.height, 500);
    }
  }
}

}  // namespace
}  // namespace lenslark
