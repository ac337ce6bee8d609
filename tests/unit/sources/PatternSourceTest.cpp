#include "sources/PatternSource.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/Eventually.h"
#include "support/FakeSources.h"

namespace lenslark {
namespace {

TEST(PatternSourceTest, isAPattern) { EXPECT_EQ(PatternSource(30).kind(), ContentKind::pattern); }

TEST(PatternSourceTest, emitsFramesThatDiffer) {
  const auto sink = std::make_shared<RecordingSink>();
  PatternSource source(60);
  source.start([sink](const FramePtr& frame) { sink->deliver(frame, ContentKind::pattern); });
  ASSERT_TRUE(eventually([&] { return sink->count() >= 2; }));
  source.stop();
  const auto frames = sink->frames();
  EXPECT_EQ(frames[0]->size(), (Size{1280, 720}));
  EXPECT_TRUE(frames[0]->opaque());
  EXPECT_NE(std::memcmp(frames[0]->pixelBuffer()->view().row(0),
                        frames[1]->pixelBuffer()->view().row(0), 1280 * 4),
            0);
}

TEST(PatternSourceTest, showsTheTime) {
  const auto sink = std::make_shared<RecordingSink>();
  PatternSource source(60);
  source.start([sink](const FramePtr& frame) { sink->deliver(frame, ContentKind::pattern); });
  ASSERT_TRUE(eventually([&] { return sink->count() >= 1; }));
  source.stop();
  EXPECT_EQ(source.problem(), std::nullopt);
  const auto view = sink->frames()[0]->pixelBuffer()->view();
  int whitePixels = 0;
  for (int y = 640; y < 690; ++y)
    for (int x = 51; x < 1280; ++x) whitePixels += view.row(y)[x * 4] == 255 ? 1 : 0;
  EXPECT_GT(whitePixels, 1000);
}

TEST(PatternSourceTest, isQuietAfterStop) {
  const auto sink = std::make_shared<RecordingSink>();
  PatternSource source(240);
  source.start([sink](const FramePtr& frame) { sink->deliver(frame, ContentKind::pattern); });
  ASSERT_TRUE(eventually([&] { return sink->count() >= 1; }));
  source.stop();
  const auto count = sink->count();
  EXPECT_FALSE(eventually([&] { return sink->count() > count; }, std::chrono::milliseconds(50)));
}

TEST(PatternSourceTest, stopBeforeStartIsHarmless) { PatternSource(30).stop(); }

TEST(PatternSourceTest, aSenselessRateStillShowsPictures) {
  for (const int fps : {0, -5, 2'000'000'000}) {
    const auto sink = std::make_shared<RecordingSink>();
    PatternSource source(fps);
    source.start([sink](const FramePtr& frame) { sink->deliver(frame, ContentKind::pattern); });
    EXPECT_TRUE(eventually([&] { return sink->count() >= 1; })) << fps;
    source.stop();
  }
}

}  // namespace
}  // namespace lenslark
