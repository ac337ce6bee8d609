#include "sources/TestPattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "base/Error.h"
#include "graphics/Compositor.h"
#include "sources/QrCode.h"

namespace lenslark {
namespace {

constexpr Size hd{1280, 720};

std::uint32_t at(const PixelView& view, int x, int y) {
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, view.row(y) + x * 4, 4);
  return pixel;
}

constexpr std::uint32_t grey = 0xFFBFBFBF;
constexpr std::uint32_t yellow = 0xFFBFBF00;
constexpr std::uint32_t cyan = 0xFF00BFBF;
constexpr std::uint32_t green = 0xFF00BF00;
constexpr std::uint32_t magenta = 0xFFBF00BF;
constexpr std::uint32_t red = 0xFFBF0000;
constexpr std::uint32_t blue = 0xFF0000BF;
constexpr std::uint32_t white = 0xFFFFFFFF;
constexpr std::uint32_t black = 0xFF000000;

class TestPatternTest : public testing::Test {
 protected:
  PixelView draw(std::uint64_t number, std::string_view time = "") {
    pattern.draw(picture.span(), number, time);
    return picture.view();
  }

  TestPattern pattern{hd, "lenslark://test-pattern"};
  PixelBuffer picture{hd, true};
};

TEST_F(TestPatternTest, theFirstFrameHasItsBarsFourPixelsToTheRight) {
  const auto view = draw(1);
  EXPECT_EQ(at(view, 3, 0), blue);
  EXPECT_EQ(at(view, 5, 0), grey);
  const int secondBar = 1280 / 7 + 4;  // starts at 182.86 + 4
  EXPECT_EQ(at(view, secondBar - 1, 0), grey);
  EXPECT_EQ(at(view, secondBar + 1, 0), yellow);
}

TEST_F(TestPatternTest, sevenBarsStandInTheirOrder) {
  const auto view = draw(320);
  const std::uint32_t expected[] = {grey, yellow, cyan, green, magenta, red, blue};
  for (int bar = 0; bar < 7; ++bar) {
    const int middle = static_cast<int>((bar + 0.5) * 1280 / 7);
    EXPECT_EQ(at(view, middle, 0), expected[bar]) << bar;
    EXPECT_EQ(at(view, middle, 719), expected[bar]) << bar;
  }
}

TEST_F(TestPatternTest, barsMeetInAPixelOfBoth) {
  const auto view = draw(320);
  // The second bar begins at 182.857: it covers a seventh of that pixel, over the grey.
  EXPECT_NEAR(static_cast<int>(at(view, 182, 0) & 0xFF), std::lround(191.25 * 6 / 7), 1);
  EXPECT_EQ(at(view, 182, 0) >> 8, grey >> 8);
}

TEST_F(TestPatternTest, theLastBarReachesOnePixelRoundTheEdge) {
  const auto view = draw(320);
  EXPECT_EQ(at(view, 0, 0), blue);
  EXPECT_EQ(at(view, 1, 0), grey);
}

TEST_F(TestPatternTest, barsAreBackAfterThreeHundredAndTwentyFrames) {
  PixelBuffer later(hd, true);
  const auto view = draw(7);
  pattern.draw(later.span(), 327, "");
  for (int y = 0; y < hd.height; ++y)
    ASSERT_EQ(std::memcmp(view.row(y), later.view().row(y), 1280 * 4), 0) << y;
  pattern.draw(later.span(), 8, "");
  EXPECT_NE(std::memcmp(view.row(0), later.view().row(0), 1280 * 4), 0);
}

TEST_F(TestPatternTest, everyPixelIsOpaque) {
  const auto view = draw(77, "12:34:56.789");
  for (int y = 0; y < hd.height; ++y)
    for (int x = 0; x < hd.width; ++x) ASSERT_EQ(at(view, x, y) >> 24, 0xFFU);
}

TEST_F(TestPatternTest, theCodeStandsOnAWhiteSquareInTheMiddle) {
  const auto view = draw(320);
  // 0.45 * 720 = 324 wide, 16 of white around it: from (462, 182) to (818, 538).
  EXPECT_EQ(at(view, 462, 182), white);
  EXPECT_EQ(at(view, 817, 537), white);
  EXPECT_NE(at(view, 461, 300), white);
  EXPECT_NE(at(view, 818, 300), white);
  EXPECT_NE(at(view, 600, 181), white);
  EXPECT_NE(at(view, 600, 538), white);
}

TEST_F(TestPatternTest, theCodeShowsItsModulesSharply) {
  const auto code = QrCode::encode("lenslark://test-pattern");
  const auto view = draw(9);
  ASSERT_EQ(324 % code.side, 0);
  const int module = 324 / code.side;
  for (int y = 0; y < 324; ++y) {
    for (int x = 0; x < 324; ++x) {
      const auto expected = code.isDark(x / module, y / module) ? black : white;
      ASSERT_EQ(at(view, 478 + x, 198 + y), expected) << x << ", " << y;
    }
  }
}

TEST_F(TestPatternTest, aDarkBandLiesOverTheBars) {
  const auto view = draw(320);
  const int x = 91;  // in the grey bar
  // From 4 % to 13 % of the height, counted from below: rows 626.4 to 691.2.
  EXPECT_EQ(at(view, x, 625), grey);
  EXPECT_EQ(at(view, x, 660) & 0xFF, 57U);  // three tenths of 191.25
  EXPECT_EQ(at(view, x, 692), grey);
}

TEST_F(TestPatternTest, theBandsEdgesCoverTheirRowsInPart) {
  const auto view = draw(320);
  const int x = 91;
  EXPECT_NEAR(static_cast<int>(at(view, x, 626) & 0xFF), 191.25 * (1 - 0.7 * 0.6), 1);
  EXPECT_NEAR(static_cast<int>(at(view, x, 691) & 0xFF), 191.25 * (1 - 0.7 * 0.2), 1);
}

TEST_F(TestPatternTest, aCaptionLetterIsLaidOverTheBand) {
  // One solid letter: two pixels wide, three high, standing on the base line.
  const GlyphMask solid{2, 3, 1, 3, 10, std::vector<std::uint8_t>(6, 255)};
  pattern.setLetters({solid, solid}, {});
  const auto view = draw(320);
  // The pen starts at 4 % of 1280 = 51.2, the base line 6.5 % from below: row 673.2.
  for (const int x : {52, 53, 62, 63}) {
    EXPECT_NE(at(view, x, 669), white) << x;
    EXPECT_EQ(at(view, x, 670), white) << x;
    EXPECT_EQ(at(view, x, 672), white) << x;
    EXPECT_NE(at(view, x, 673), white) << x;
  }
  EXPECT_NE(at(view, 51, 671), white);
  EXPECT_NE(at(view, 54, 671), white);
  EXPECT_NE(at(view, 64, 671), white);
}

TEST_F(TestPatternTest, lettersAreBlendedByTheirCoverage) {
  const GlyphMask half{1, 1, 0, 1, 1, {128}};
  pattern.setLetters({half}, {});
  const auto view = draw(320);
  const int halfWay = (57 + 255) / 2;
  EXPECT_NEAR(static_cast<int>(at(view, 51, 672) & 0xFF), halfWay, 2);
}

TEST_F(TestPatternTest, theTimeFollowsTheTextAndLeavesOutStrangeCharacters) {
  const GlyphMask blank{0, 0, 0, 0, 100, {}};
  const GlyphMask dot{1, 1, 0, 1, 5, {255}};
  std::vector<GlyphMask> digits(TestPattern::captionDigits.size(), blank);
  digits[1] = dot;
  pattern.setLetters({blank}, digits);
  const auto view = draw(320, "x1?1");
  EXPECT_EQ(at(view, 151, 672), white);  // 51.2 + 100
  EXPECT_EQ(at(view, 156, 672), white);
  EXPECT_NE(at(view, 161, 672), white);
}

/// Frames that are drawn over earlier ones, beside those that are drawn whole.
class TestPatternRedrawTest : public testing::TestWithParam<Size> {
 protected:
  /// With a caption as high as the real one is; letters stick out of the band when it is small.
  TestPatternRedrawTest() {
    const int side = std::max(1, static_cast<int>(pattern.captionSize()));
    GlyphMask mask{side, side, 1, side, side + 1.5, {}};
    for (int i = 0; i < side * side; ++i)
      mask.coverage.push_back(static_cast<std::uint8_t>(i * 37));
    pattern.setLetters(std::vector(3, mask), std::vector(TestPattern::captionDigits.size(), mask));
  }

  void expectWhole(std::uint64_t before, std::uint64_t number) {
    pattern.draw(over.span(), before, "12:34");
    pattern.redraw(over.span(), before, number, "5.6");
    pattern.draw(whole.span(), number, "5.6");
    for (int y = 0; y < GetParam().height; ++y) {
      ASSERT_EQ(std::memcmp(over.view().row(y), whole.view().row(y),
                            static_cast<std::size_t>(GetParam().width) * 4),
                0)
          << "row " << y << " of frame " << number << " over " << before;
    }
  }

  TestPattern pattern{GetParam(), "x"};
  PixelBuffer over{GetParam(), true};
  PixelBuffer whole{GetParam(), true};
};

TEST_P(TestPatternRedrawTest, isThePictureThatWouldHaveBeenDrawnWhole) {
  for (std::uint64_t number = 1; number <= 400; number += 13) {
    expectWhole(number, number + 1);
    expectWhole(number, number + 2);
    expectWhole(number, number + 7);
  }
}

TEST_P(TestPatternRedrawTest, takesTheSameFrameAnEarlierOneAndOneFarAway) {
  expectWhole(5, 5);
  expectWhole(9, 2);
  expectWhole(1, 100);
  expectWhole(3, std::uint64_t{1} << 63);
}

INSTANTIATE_TEST_SUITE_P(Sizes, TestPatternRedrawTest,
                         testing::Values(hd, Size{640, 480}, Size{333, 201}, Size{97, 61},
                                         Size{64, 640}, Size{16, 12}, Size{3, 2}));

TEST_F(TestPatternTest, redrawingLeavesATargetOfAnotherSizeAlone) {
  PixelBuffer other({64, 64}, true);
  Compositor::fill(other.span(), {1, 2, 3, 255});
  pattern.redraw(other.span(), 1, 2, "");
  EXPECT_EQ(at(other.view(), 5, 5), 0xFF010203);
}

TEST_F(TestPatternTest, drawsIntoRowsThatAreFurtherApart) {
  PixelBuffer wide(hd, true, 1280 * 4 + 256);
  pattern.draw(wide.span(), 5, "");
  const auto view = draw(5);
  for (int y = 0; y < hd.height; ++y)
    ASSERT_EQ(std::memcmp(view.row(y), wide.view().row(y), 1280 * 4), 0) << y;
}

TEST(TestPatternSizeTest, leavesATargetOfAnotherSizeAlone) {
  const TestPattern pattern({64, 64}, "x");
  PixelBuffer small({8, 8}, true);
  std::memset(small.span().data, 7, 8 * 8 * 4);
  pattern.draw(small.span(), 1, "");
  EXPECT_EQ(small.view().row(0)[0], 7);
}

TEST(TestPatternSizeTest, leavesOutACodeThatDoesNotFit) {
  const TestPattern pattern({16, 12}, "x");
  PixelBuffer picture({16, 12}, true);
  pattern.draw(picture.span(), 1, "");
  EXPECT_NE(at(picture.view(), 8, 6), white);
}

TEST(QrCodeTest, hasABorderOfOneModuleAndAFinderInThreeCorners) {
  const auto code = QrCode::encode("lenslark://test-pattern");
  for (int i = 0; i < code.side; ++i) EXPECT_FALSE(code.isDark(i, 0));
  EXPECT_TRUE(code.isDark(1, 1));
  EXPECT_TRUE(code.isDark(code.side - 2, 1));
  EXPECT_TRUE(code.isDark(1, code.side - 2));
}

TEST(QrCodeTest, refusesATextThatIsTooLong) {
  EXPECT_THROW(QrCode::encode(std::string(8000, 'x')), Error);
}

}  // namespace
}  // namespace lenslark
