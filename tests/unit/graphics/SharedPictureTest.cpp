#include "graphics/SharedPicture.h"

#include <gtest/gtest.h>

#include "support/NumberedPicture.h"

namespace lenslark {
namespace {

constexpr Pixel ofOriginal{10, 20, 30, 255};
constexpr Pixel ofWhole{40, 50, 60, 255};

/// The two differ here, to tell which of them was drawn.
class SharedPictureTest : public testing::Test {
 protected:
  /// The first pixel of `part` at `size`.
  Pixel pixelOf(const PixelRect& part, Size size) const {
    PixelBuffer target(size);
    EXPECT_TRUE(shared.draw(part, target.span()));
    return pixelAt(target.view(), 0, 0);
  }

  const SharedPicture shared{uniformPicture({8, 6}, ofOriginal), uniformPicture({8, 6}, ofWhole)};
};

TEST_F(SharedPictureTest, copiesWhatIsInMemoryForWhoeverWantsAllOfIt) {
  EXPECT_EQ(pixelOf(shared.bounds(), shared.size()), ofWhole);
}

TEST_F(SharedPictureTest, drawsAPartFromTheOriginal) {
  EXPECT_EQ(pixelOf({1, 1, 4, 4}, {4, 4}), ofOriginal);
}

TEST_F(SharedPictureTest, drawsAnotherSizeFromTheOriginal) {
  EXPECT_EQ(pixelOf(shared.bounds(), {4, 3}), ofOriginal);
}

TEST_F(SharedPictureTest, isAsOpaqueAsWhatIsInMemory) {
  EXPECT_TRUE(SharedPicture(nullptr, std::make_shared<PixelBuffer>(Size{2, 2}, true)).opaque());
  EXPECT_FALSE(SharedPicture(nullptr, std::make_shared<PixelBuffer>(Size{2, 2}, false)).opaque());
}

}  // namespace
}  // namespace lenslark
