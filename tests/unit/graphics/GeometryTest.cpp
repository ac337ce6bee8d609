#include "graphics/Geometry.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

TEST(GeometryTest, intersectionIsWhatBothShare) {
  EXPECT_EQ(intersection({0, 0, 10, 10}, {4, 6, 20, 3}), (Rect{4, 6, 6, 3}));
}

TEST(GeometryTest, intersectionOfStrangersIsZero) {
  EXPECT_EQ(intersection({0, 0, 10, 10}, {10, 0, 5, 5}), Rect{});
  EXPECT_EQ(intersection({0, 0, 10, 10}, {-7, -7, 3, 3}), Rect{});
}

TEST(GeometryTest, fitLeavesBarsBesideATallPicture) {
  const Placement placement = place({300, 600}, {10, 20, 400, 200}, false);
  EXPECT_EQ(placement.source, (PixelRect{0, 0, 300, 600}));
  EXPECT_EQ(placement.target, (PixelRect{160, 20, 100, 200}));
}

TEST(GeometryTest, fitLeavesBarsAboveAWidePicture) {
  const Placement placement = place({1920, 1080}, {280, 0, 720, 960}, false);
  EXPECT_EQ(placement.source, (PixelRect{0, 0, 1920, 1080}));
  EXPECT_EQ(placement.target, (PixelRect{280, 277, 720, 405}));
}

TEST(GeometryTest, fillCutsTheSidesOfAWidePicture) {
  const Placement placement = place({1920, 1080}, {280, 0, 720, 960}, true);
  EXPECT_EQ(placement.source, (PixelRect{555, 0, 810, 1080}));
  EXPECT_EQ(placement.target, (PixelRect{280, 0, 720, 960}));
}

TEST(GeometryTest, fillCutsTopAndBottomOfATallPicture) {
  const Placement placement = place({300, 600}, {0, 0, 400, 200}, true);
  EXPECT_EQ(placement.source, (PixelRect{0, 225, 300, 150}));
  EXPECT_EQ(placement.target, (PixelRect{0, 0, 400, 200}));
}

TEST(GeometryTest, equalShapesNeitherCutNorLeaveBars) {
  for (const bool fill : {false, true}) {
    const Placement placement = place({333, 222}, {0, 0, 999, 666}, fill);
    EXPECT_EQ(placement.source, (PixelRect{0, 0, 333, 222}));
    EXPECT_EQ(placement.target, (PixelRect{0, 0, 999, 666}));
  }
}

TEST(GeometryTest, extremeShapesKeepAPixel) {
  EXPECT_EQ(place({100000, 1}, {0, 0, 100, 100}, false).target.height, 1);
  EXPECT_EQ(place({100000, 1}, {0, 0, 100, 100}, true).source.width, 1);
}

TEST(GeometryTest, nothingIsPlacedNowhere) {
  EXPECT_EQ(place({0, 10}, {0, 0, 100, 100}, true), Placement{});
  EXPECT_EQ(place({10, 10}, {0, 0, 100, 0}, false), Placement{});
}

TEST(GeometryTest, boundedByShrinksTheLongerSide) {
  EXPECT_EQ(boundedBy({4000, 3000}, 2048), (Size{2048, 1536}));
  EXPECT_EQ(boundedBy({3000, 4001}, 2000), (Size{1500, 2000}));
}

TEST(GeometryTest, boundedByNeverEnlarges) {
  EXPECT_EQ(boundedBy({640, 481}, 2048), (Size{640, 481}));
}

TEST(GeometryTest, boundedByKeepsAPixel) { EXPECT_EQ(boundedBy({9000, 1}, 90), (Size{90, 1})); }

}  // namespace
}  // namespace lenslark
