#include "graphics/Compositor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "graphics/PixelBuffer.h"
#include "support/NumberedPicture.h"

namespace lenslark {
namespace {

/// How far the most different channel of two pixels is apart.
int distance(const Pixel& a, const Pixel& b) {
  int most = 0;
  for (std::size_t i = 0; i < a.size(); ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

constexpr int filterTolerance = 1;

TEST(CompositorTest, copyKeepsEveryByteOfAPictureOfManyPages) {
  constexpr Size size{131, 97};
  const auto picture = numberedPicture(size);
  PixelBuffer copy(size, true);
  Compositor::copy(picture->view(), copy.span());
  EXPECT_EQ(std::memcmp(copy.view().data, picture->view().data, 131 * 97 * 4), 0);
}

TEST(CompositorTest, copyKeepsEveryByteAcrossStrides) {
  const auto picture = numberedPicture({11, 6}, 20);
  PixelBuffer copy({11, 6}, true, 11 * 4 + 8);
  Compositor::copy(picture->view(), copy.span());
  for (int y = 0; y < 6; ++y) {
    for (int x = 0; x < 11; ++x) ASSERT_EQ(pixelAt(copy.view(), x, y), numberedPixel(x, y));
  }
}

TEST(CompositorTest, halvingAveragesFourPixels) {
  PixelBuffer picture({4, 2});
  for (int x = 0; x < 4; ++x) {
    setPixel(picture.span(), x, 0, {static_cast<std::uint8_t>(40 * x), 0, 100, 255});
    setPixel(picture.span(), x, 1, {static_cast<std::uint8_t>(40 * x), 80, 200, 255});
  }
  PixelBuffer half({2, 1});
  ASSERT_TRUE(Compositor::scale(picture.view(), half.span()));
  EXPECT_EQ(pixelAt(half.view(), 0, 0), (Pixel{20, 40, 150, 255}));
  EXPECT_EQ(pixelAt(half.view(), 1, 0), (Pixel{100, 40, 150, 255}));
}

TEST(CompositorTest, halvingAnOddPictureLosesNoEdge) {
  // 7 x 5 to 2 x 2 by way of 4 x 3: white stays white to the last column and row.
  const auto white = uniformPicture({7, 5}, {255, 255, 255, 255});
  PixelBuffer small({2, 2});
  ASSERT_TRUE(Compositor::scale(white->view(), small.span()));
  EXPECT_EQ(pixelAt(small.view(), 1, 1), (Pixel{255, 255, 255, 255}));

  PixelBuffer edged({7, 5}, true);
  Compositor::fill(edged.span(), {});
  for (int y = 0; y < 5; ++y) setPixel(edged.span(), 6, y, {255, 255, 255, 255});
  ASSERT_TRUE(Compositor::scale(edged.view(), small.span()));
  EXPECT_GT(pixelAt(small.view(), 1, 0)[0], 60);
  EXPECT_LT(pixelAt(small.view(), 0, 0)[0], 10);
}

TEST(CompositorTest, everyRatioKeepsThePictureUpright) {
  // Four quarters of different colours: each must be found where it was.
  constexpr Size size{640, 480};
  PixelBuffer picture(size, true);
  constexpr Pixel colors[]{
      {0, 0, 240, 255}, {0, 240, 0, 255}, {240, 0, 0, 255}, {240, 240, 0, 255}};
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      setPixel(picture.span(), x, y, colors[(x >= 320 ? 1 : 0) + (y >= 240 ? 2 : 0)]);
    }
  }
  for (const Size to : {Size{320, 240}, Size{427, 320}, Size{100, 75}, Size{1280, 960},
                        Size{201, 151}, Size{450, 531}, Size{16, 12}}) {
    PixelBuffer scaled(to, true);
    ASSERT_TRUE(Compositor::scale(picture.view(), scaled.span()));
    for (int quarter = 0; quarter < 4; ++quarter) {
      const int x = to.width * (quarter % 2 == 0 ? 1 : 3) / 4;
      const int y = to.height * (quarter / 2 == 0 ? 1 : 3) / 4;
      EXPECT_LE(distance(pixelAt(scaled.view(), x, y), colors[quarter]), filterTolerance)
          << to.width << "x" << to.height << " quarter " << quarter;
    }
  }
}

TEST(CompositorTest, aPlainColourStaysWhatItIsAtEveryRatio) {
  for (const Size from : {Size{64, 48}, Size{50, 37}, Size{100, 48}, Size{31, 7}, Size{1, 1},
                          Size{1, 48}, Size{64, 1}, Size{2, 2}}) {
    for (const Size to : {Size{64, 48}, Size{32, 24}, Size{50, 48}, Size{64, 30}, Size{97, 71},
                          Size{1, 48}, Size{2, 1}}) {
      for (const int value : {0, 1, 63, 64, 127, 128, 191, 192, 254, 255}) {
        const auto shade = static_cast<std::uint8_t>(value);
        const Pixel color{shade, 0, shade, 255};
        PixelBuffer scaled(to, true);
        ASSERT_TRUE(Compositor::scale(uniformPicture(from, color)->view(), scaled.span()));
        for (int x = 0; x < to.width; ++x) {
          const Pixel pixel = pixelAt(scaled.view(), x, to.height - 1);
          ASSERT_EQ(pixel[3], 255);
          ASSERT_LE(distance(pixel, color), 1)
              << value << " from " << from.width << "x" << from.height << " to " << to.width << "x"
              << to.height;
        }
      }
    }
  }
}

TEST(CompositorTest, farReductionSeesEveryPixel) {
  // One column in eight is white: a filter that looks at two pixels would see it or miss it.
  PixelBuffer stripes({800, 80}, true);
  for (int y = 0; y < 80; ++y) {
    for (int x = 0; x < 800; ++x) {
      const auto value = static_cast<std::uint8_t>(x % 8 == 0 ? 255 : 0);
      setPixel(stripes.span(), x, y, {value, value, value, 255});
    }
  }
  PixelBuffer small({100, 10}, true);
  ASSERT_TRUE(Compositor::scale(stripes.view(), small.span()));
  for (int x = 0; x < 100; ++x) {
    EXPECT_NEAR(pixelAt(small.view(), x, 5)[0], 32, filterTolerance) << x;
  }
}

TEST(CompositorTest, scalingPremultipliedPixelsBringsNoHiddenColour) {
  // Half red, half transparent: the seam is a fainter red, never a darker one.
  PixelBuffer picture({100, 10});
  for (int y = 0; y < 10; ++y) {
    for (int x = 0; x < 100; ++x) {
      setPixel(picture.span(), x, y, x < 50 ? Pixel{0, 0, 255, 255} : Pixel{0, 0, 0, 0});
    }
  }
  PixelBuffer wide({333, 10});
  ASSERT_TRUE(Compositor::scale(picture.view(), wide.span()));
  for (int x = 0; x < 333; ++x) {
    const Pixel pixel = pixelAt(wide.view(), x, 5);
    EXPECT_EQ(pixel[2], pixel[3]) << x;
  }
}

/// A scaled picture of which only a part was drawn: how far it is from the whole's, inside and
/// outside.
void expectPartOfWhole(Size from, Size to, const PixelRect& part) {
  const auto picture = numberedPicture(from);
  PixelBuffer whole(to);
  ASSERT_TRUE(Compositor::scale(picture->view(), whole.span()));
  PixelBuffer partly(to);
  Compositor::fill(partly.span(), {1, 2, 3, 255});
  const Pixel untouched = pixelAt(partly.view(), 0, 0);
  ASSERT_TRUE(Compositor::scalePart(picture->view(), partly.span(), part));
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      const bool inside =
          x >= part.x && x < part.x + part.width && y >= part.y && y < part.y + part.height;
      const Pixel expected = inside ? pixelAt(whole.view(), x, y) : untouched;
      ASSERT_LE(distance(pixelAt(partly.view(), x, y), expected), inside ? 1 : 0)
          << "at " << x << ", " << y << " of " << to.width << " x " << to.height;
    }
  }
}

TEST(CompositorTest, aPartIsScaledAsTheWhole) {
  for (const PixelRect& part :
       {PixelRect{0, 0, 1, 1}, PixelRect{7, 5, 20, 11}, PixelRect{33, 0, 31, 36}}) {
    expectPartOfWhole({96, 54}, {64, 36}, part);
    expectPartOfWhole({128, 72}, {64, 36}, part);
    expectPartOfWhole({39, 84}, {64, 128}, part);
    expectPartOfWhole({64, 36}, {64, 36}, part);
  }
}

TEST(CompositorTest, aPartIsScaledInStepsAsTheWhole) {
  for (const PixelRect& part : {PixelRect{0, 0, 1, 1}, PixelRect{7, 5, 20, 11},
                                PixelRect{33, 0, 31, 36}, PixelRect{63, 35, 1, 1}}) {
    expectPartOfWhole({160, 90}, {64, 36}, part);
    expectPartOfWhole({301, 175}, {64, 36}, part);
    expectPartOfWhole({1111, 999}, {64, 36}, part);
    expectPartOfWhole({603, 40}, {64, 36}, part);
    expectPartOfWhole({64, 500}, {64, 36}, part);
    expectPartOfWhole({1000, 20}, {64, 36}, part);
  }
}

TEST(CompositorTest, scalingOpaquelyKeepsTheColours) {
  for (const Size from : {Size{96, 54}, Size{64, 36}, Size{301, 175}, Size{32, 18}}) {
    const auto picture = numberedPicture(from);
    PixelBuffer expected({64, 36});
    ASSERT_TRUE(Compositor::scale(picture->view(), expected.span()));
    for (int x = 0; x < from.width; ++x) picture->span().row(from.height / 2)[x * 4 + 3] = 0;
    PixelBuffer scaled({64, 36});
    ASSERT_TRUE(Compositor::scale(picture->view(), scaled.span(), Compositor::Alpha::opaque));
    for (int y = 0; y < 36; ++y) {
      for (int x = 0; x < 64; ++x) {
        Pixel wanted = pixelAt(expected.view(), x, y);
        wanted[3] = 255;
        ASSERT_EQ(pixelAt(scaled.view(), x, y), wanted) << x << ", " << y << " of " << from.width;
      }
    }
  }
}

TEST(CompositorTest, scaleSaysWhenItCannot) {
  PixelBuffer picture({40000, 1});
  PixelBuffer small({1000, 1});
  EXPECT_FALSE(Compositor::scale(PixelView{}, small.span()));
  EXPECT_FALSE(Compositor::scale(picture.view(), small.span()));
}

TEST(CompositorTest, fillMultipliesByTheAlpha) {
  PixelBuffer picture({3, 2}, false, 20);
  Compositor::fill(picture.span(), {.red = 255, .green = 100, .blue = 0, .alpha = 128});
  EXPECT_EQ(pixelAt(picture.view(), 2, 1), (Pixel{0, 50, 128, 128}));
}

TEST(CompositorTest, fillOfNothingTouchesNothing) {
  const auto picture = uniformPicture({3, 3}, {1, 2, 3, 4});
  Compositor::fill(picture->span().part({0, 1, 3, 0}), {});
  Compositor::fill(picture->span().part({1, 0, 0, 3}), {});
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 3; ++x) EXPECT_EQ(pixelAt(picture->view(), x, y), (Pixel{1, 2, 3, 4}));
  }
}

TEST(CompositorTest, makeOpaqueKeepsTheColours) {
  const auto picture = uniformPicture({9, 3}, {1, 2, 3, 4});
  Compositor::makeOpaque(picture->span());
  EXPECT_EQ(pixelAt(picture->view(), 8, 2), (Pixel{1, 2, 3, 255}));
}

struct BlendCase {
  Pixel above;
  Pixel below;
  Pixel result;
};

TEST(CompositorTest, blendComposesOverAnOpaqueTarget) {
  constexpr BlendCase cases[]{
      {{10, 20, 30, 255}, {200, 100, 50, 255}, {10, 20, 30, 255}},
      {{0, 0, 0, 0}, {200, 100, 50, 255}, {200, 100, 50, 255}},
      {{64, 0, 0, 128}, {100, 100, 100, 255}, {114, 50, 50, 255}},
  };
  for (const BlendCase& test : cases) {
    const auto target = uniformPicture({21, 3}, test.below);
    Compositor::blend(uniformPicture({21, 3}, test.above)->view(), target->span(), 0, 0, true);
    EXPECT_LE(distance(pixelAt(target->view(), 20, 2), test.result), 1);
    EXPECT_EQ(pixelAt(target->view(), 20, 2)[3], 255);
  }
}

TEST(CompositorTest, blendComposesTheAlphaOfATranslucentTarget) {
  const auto target = uniformPicture({5, 3}, {0, 0, 100, 100});
  Compositor::blend(uniformPicture({5, 3}, {51, 0, 0, 51})->view(), target->span(), 0, 0, false);
  // 100 * (255 - 51) / 255 = 80.
  EXPECT_EQ(pixelAt(target->view(), 4, 2), (Pixel{51, 0, 80, 131}));
}

TEST(CompositorTest, blendLeavesOutWhatStandsOverTheEdges) {
  const auto picture = numberedPicture({10, 10});
  for (const bool opaque : {false, true}) {
    const auto target = uniformPicture({8, 8}, {9, 9, 9, 255});
    Compositor::blend(picture->view(), target->span(), -7, 5, opaque);
    EXPECT_EQ(pixelAt(target->view(), 0, 5), numberedPixel(7, 0));
    EXPECT_EQ(pixelAt(target->view(), 2, 7), numberedPixel(9, 2));
    EXPECT_EQ(pixelAt(target->view(), 3, 5), (Pixel{9, 9, 9, 255}));
    EXPECT_EQ(pixelAt(target->view(), 0, 4), (Pixel{9, 9, 9, 255}));
  }
}

TEST(CompositorTest, blendFarOutsideDoesNothing) {
  const auto target = uniformPicture({4, 4}, {9, 9, 9, 255});
  const auto picture = uniformPicture({4, 4}, {1, 1, 1, 255});
  for (const auto& [x, y] : {std::pair{4, 0}, {-4, 0}, {0, 4}, {0, -4}}) {
    Compositor::blend(picture->view(), target->span(), x, y, true);
  }
  EXPECT_EQ(pixelAt(target->view(), 0, 0), (Pixel{9, 9, 9, 255}));
  EXPECT_EQ(pixelAt(target->view(), 3, 3), (Pixel{9, 9, 9, 255}));
}

TEST(CompositorTest, fadeMultipliesAllChannels) {
  const auto picture = uniformPicture({6, 2}, {200, 101, 3, 255});
  Compositor::fade(picture->span(), 0.5);
  EXPECT_EQ(pixelAt(picture->view(), 5, 1), (Pixel{100, 51, 2, 128}));
}

TEST(CompositorTest, fadeKeepsToItsBounds) {
  for (const auto& [opacity, expected] : {std::pair{1.0, Pixel{200, 100, 3, 255}},
                                          {7.0, Pixel{200, 100, 3, 255}},
                                          {0.0, Pixel{}},
                                          {-1.0, Pixel{}},
                                          {std::numeric_limits<double>::quiet_NaN(), Pixel{}}}) {
    const auto picture = uniformPicture({6, 2}, {200, 100, 3, 255});
    Compositor::fade(picture->span(), opacity);
    EXPECT_EQ(pixelAt(picture->view(), 0, 1), expected) << opacity;
  }
}

}  // namespace
}  // namespace lenslark
