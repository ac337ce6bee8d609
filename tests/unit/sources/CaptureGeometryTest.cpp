#include "sources/CaptureGeometry.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

using CaptureGeometry::Capture;

const Rect fullHd{0, 0, 1920, 1080};

std::vector<DisplayInfo> sideBySide() {
  return {{1, "left", {0, 0, 1000, 800}}, {2, "right", {1000, 0, 1000, 800}}};
}

TEST(CaptureGeometryTest, takesTheDisplayThatHoldsTheCentre) {
  const auto displays = sideBySide();
  EXPECT_EQ(CaptureGeometry::display({900, 100, 300, 300}, displays)->id, 2U);
  EXPECT_EQ(CaptureGeometry::display({800, 100, 300, 300}, displays)->id, 1U);
}

TEST(CaptureGeometryTest, takesTheDisplayThatIsCoveredMostWhenTheCentreLiesOutside) {
  const auto displays = sideBySide();
  EXPECT_EQ(CaptureGeometry::display({900, -500, 300, 600}, displays)->id, 2U);
}

TEST(CaptureGeometryTest, takesTheFirstOfDisplaysThatAreCoveredAlike) {
  const auto displays = sideBySide();
  EXPECT_EQ(CaptureGeometry::display({900, -500, 200, 600}, displays)->id, 1U);
}

TEST(CaptureGeometryTest, findsNoDisplayForAWindowOffAll) {
  EXPECT_EQ(CaptureGeometry::display({5000, 0, 100, 100}, sideBySide()), nullptr);
}

TEST(CaptureGeometryTest, filmsExactlyAnIosWindow) {
  EXPECT_EQ(CaptureGeometry::capture({100, 50, 390, 844}, false, fullHd),
            (Capture{{100, 50, 390, 844}, {590, 1280}}));
}

TEST(CaptureGeometryTest, filmsALandscapeAreaAroundAnEmulator) {
  const Rect area = CaptureGeometry::androidArea({760, 100, 400, 800});
  EXPECT_NEAR(area.width, 711.11, 0.01);
  EXPECT_NEAR(area.height, 533.33, 0.01);
  EXPECT_NEAR(area.midX(), 960, 1e-9);
  EXPECT_NEAR(area.midY(), 500, 1e-9);
}

TEST(CaptureGeometryTest, givesAnEmulatorPicturesOfFourToThree) {
  EXPECT_EQ(CaptureGeometry::capture({760, 100, 400, 800}, true, fullHd).output, (Size{1280, 960}));
}

TEST(CaptureGeometryTest, losesNoLinesToRounding) {
  for (int width = 101; width < 800; ++width) {
    EXPECT_EQ(CaptureGeometry::capture({500, 100, double(width), 800}, true, fullHd).output,
              (Size{1280, 960}));
  }
}

TEST(CaptureGeometryTest, countsFromTheDisplaysCorner) {
  EXPECT_EQ(CaptureGeometry::capture({1100, 50, 100, 200}, false, {1000, 0, 1000, 800}).source,
            (Rect{100, 50, 100, 200}));
}

TEST(CaptureGeometryTest, shiftsAWindowBackIntoTheDisplay) {
  EXPECT_EQ(CaptureGeometry::capture({-50, 1000, 200, 200}, false, fullHd).source,
            (Rect{0, 880, 200, 200}));
}

TEST(CaptureGeometryTest, cutsAWindowThatIsWiderThanTheDisplay) {
  const Capture capture = CaptureGeometry::capture({-100, 0, 2200, 500}, false, fullHd);
  EXPECT_EQ(capture.source, (Rect{0, 0, 1920, 500}));
  EXPECT_EQ(capture.output, (Size{1280, 290}));
}

TEST(CaptureGeometryTest, filmsACornerWhenNothingIsLeft) {
  EXPECT_EQ(CaptureGeometry::capture({5000, 0, 3000, 500}, false, fullHd).source,
            (Rect{0, 0, 16, 16}));
}

TEST(CaptureGeometryTest, makesBothSidesEven) {
  const Capture capture = CaptureGeometry::capture({0, 0, 333, 777}, false, fullHd);
  EXPECT_EQ(capture.output, (Size{548, 1280}));
}

}  // namespace
}  // namespace lenslark
