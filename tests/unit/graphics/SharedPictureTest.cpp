#include "graphics/SharedPicture.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/NumberedPicture.h"
#include "support/PlanarPicture.h"

namespace lenslark {
namespace {

class SharedPictureTest : public testing::Test {
 protected:
  static constexpr Size size{8, 6};

  /// The last pixel of `part` at a size of its own.
  static Pixel pixelOf(const Frame& frame, const PixelRect& part, Size drawnSize) {
    PixelBuffer target(drawnSize);
    EXPECT_TRUE(frame.draw(part, target.span()));
    return pixelAt(target.view(), drawnSize.width - 1, drawnSize.height - 1);
  }

  const std::shared_ptr<PlanarPicture> original = std::make_shared<PlanarPicture>(size);
  const std::shared_ptr<PixelBufferPool> pool = std::make_shared<PixelBufferPool>(size, true);
  const SharedPicture shared{original, pool};
};

TEST_F(SharedPictureTest, isDrawnOnceForAllWhoShowItAsItIs) {
  for (int camera = 0; camera < 3; ++camera) {
    EXPECT_EQ(pixelOf(shared, shared.bounds(), size), (Pixel{3, 2, 1, 255}));
  }
  EXPECT_EQ(original->drawn, 1);
}

TEST_F(SharedPictureTest, isDrawnOnceForThreadsThatShowItAtOnce) {
  {
    std::vector<std::jthread> cameras;
    for (int camera = 0; camera < 4; ++camera) {
      cameras.emplace_back([this] {
        EXPECT_EQ(pixelOf(shared, shared.bounds(), size), (Pixel{3, 2, 1, 255}));
      });
    }
  }
  EXPECT_EQ(original->drawn, 1);
}

TEST_F(SharedPictureTest, hasAPartDrawnFromTheOriginal) {
  const auto numbered = numberedPicture({8, 6});
  const SharedPicture picture(numbered, pool);
  EXPECT_EQ(pixelOf(picture, {2, 1, 4, 4}, {4, 4}), numberedPixel(5, 4));
}

TEST_F(SharedPictureTest, isNotDrawnIntoMemoryForPartsAndOtherSizes) {
  pixelOf(shared, {1, 1, 4, 4}, {4, 4});
  pixelOf(shared, shared.bounds(), {4, 3});
  EXPECT_EQ(original->drawn, 2);
}

TEST_F(SharedPictureTest, copiesWhatIsInMemoryAlready) {
  const auto picture = numberedPicture({8, 6});
  EXPECT_EQ(pixelOf(SharedPicture(picture, nullptr), picture->bounds(), size), numberedPixel(7, 5));
}

TEST_F(SharedPictureTest, tellsThatItCannotBeDrawn) {
  original->drawable = false;
  PixelBuffer target(size);
  EXPECT_FALSE(shared.draw(shared.bounds(), target.span()));
}

}  // namespace
}  // namespace lenslark
