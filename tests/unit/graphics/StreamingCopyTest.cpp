#include "graphics/StreamingCopy.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "support/NumberedPicture.h"

namespace lenslark {
namespace {

constexpr std::uint8_t untouched = 0xA5;

/// Copies a numbered picture to `offset` bytes into memory, rows `gap` bytes apart; tells whether
/// each pixel arrived and nothing else changed.
void copiesExactly(Size size, std::ptrdiff_t gap, std::size_t offset) {
  SCOPED_TRACE(testing::Message() << size.width << "x" << size.height << ", gap " << gap
                                  << ", offset " << offset);
  const auto picture = numberedPicture(size, 3);
  const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * 4 + gap;
  const auto used = static_cast<std::size_t>(stride * size.height);
  std::vector<std::uint8_t> memory(offset + used + 64, untouched);
  const PixelSpan target{memory.data() + offset, size, stride};
  streamingCopy(picture->view(), target);

  std::vector<std::uint8_t> expected(memory.size(), untouched);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const auto pixel = pixelAt(picture->view(), x, y);
      const auto place = static_cast<std::ptrdiff_t>(offset) + y * stride + x * 4;
      std::copy(pixel.begin(), pixel.end(), expected.begin() + place);
    }
  }
  EXPECT_EQ(memory, expected);
}

TEST(StreamingCopyTest, copiesEveryPixelAndNothingElseWhereverThePictureLies) {
  for (const std::size_t offset : {0, 1, 4, 16, 28, 31}) {
    for (const int width : {1, 7, 8, 9, 31, 33}) {
      copiesExactly({width, 3}, 0, offset);
      copiesExactly({width, 3}, 12, offset);
    }
  }
}

TEST(StreamingCopyTest, copiesNothingOfAnEmptyPicture) {
  std::uint8_t pixel = untouched;
  streamingCopy({&pixel, {0, 1}, 0}, {&pixel, {0, 1}, 0});
  EXPECT_EQ(pixel, untouched);
}

}  // namespace
}  // namespace lenslark
