#include "graphics/PixelBuffer.h"

#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "support/NumberedPicture.h"

namespace lenslark {
namespace {

TEST(PixelBufferTest, rowsArePackedUnlessAWiderStrideIsAsked) {
  EXPECT_EQ(PixelBuffer({7, 3}).view().stride, 28);
  EXPECT_EQ(PixelBuffer({7, 3}, false, 32).view().stride, 32);
  EXPECT_EQ(PixelBuffer({7, 3}, false, 4).view().stride, 28);
}

TEST(PixelBufferTest, drawingAnEqualSizeGivesTheExactPixels) {
  const auto picture = numberedPicture({13, 9}, 12);
  PixelBuffer copy({4, 5});
  ASSERT_TRUE(picture->draw({6, 3, 4, 5}, copy.span()));
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 4; ++x) {
      EXPECT_EQ(pixelAt(copy.view(), x, y), numberedPixel(x + 6, y + 3));
    }
  }
}

TEST(PixelBufferTest, anOpaquePictureStaysOpaqueWhenScaled) {
  const auto picture = uniformPicture({100, 60}, {10, 20, 30, 255});
  PixelBuffer scaled({77, 41});
  ASSERT_TRUE(picture->draw(picture->bounds(), scaled.span()));
  for (int y = 0; y < 41; ++y) {
    for (int x = 0; x < 77; ++x) ASSERT_EQ(pixelAt(scaled.view(), x, y)[3], 255);
  }
}

TEST(PixelBufferTest, refusesWhatNoMemoryHolds) {
  constexpr int most = std::numeric_limits<int>::max();
  EXPECT_THROW(PixelBuffer({most, most}), std::bad_alloc);
}

TEST(PixelBufferTest, materializedFramesEqualTheirSource) {
  const auto picture = numberedPicture({5, 4}, 4);
  const auto copy = materialize(*picture);
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->opaque());
  EXPECT_EQ(pixelAt(copy->view(), 4, 2), numberedPixel(4, 2));
}

TEST(PixelBufferPoolTest, usesABufferAgain) {
  PixelBufferPool pool({8, 8}, true);
  auto first = pool.take();
  const PixelBuffer* const address = first.get();
  first.reset();
  EXPECT_EQ(pool.take().get(), address);
}

TEST(PixelBufferPoolTest, neverHandsOutABufferInUse) {
  PixelBufferPool pool({8, 8}, true);
  const auto first = pool.take();
  const auto second = pool.take();
  EXPECT_NE(first, second);
}

TEST(PixelBufferPoolTest, buffersOutliveTheirPool) {
  std::shared_ptr<PixelBuffer> buffer;
  {
    PixelBufferPool pool({2, 2}, false);
    buffer = pool.take();
  }
  setPixel(buffer->span(), 1, 1, {1, 2, 3, 4});
  EXPECT_EQ(pixelAt(buffer->view(), 1, 1), (Pixel{1, 2, 3, 4}));
}

TEST(PixelBufferPoolTest, servesSeveralThreads) {
  PixelBufferPool pool({16, 16}, true);
  std::vector<std::jthread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([&pool, index] {
      for (int round = 0; round < 500; ++round) {
        const auto buffer = pool.take();
        const Pixel mark{static_cast<std::uint8_t>(index), static_cast<std::uint8_t>(round), 7, 8};
        setPixel(buffer->span(), 3, 3, mark);
        ASSERT_EQ(pixelAt(buffer->view(), 3, 3), mark);
      }
    });
  }
}

}  // namespace
}  // namespace lenslark
