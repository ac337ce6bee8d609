#include "sources/VideoTimeline.h"

#include <gtest/gtest.h>

#include <vector>

#include "graphics/PixelBuffer.h"

namespace lenslark {
namespace {

FramePtr picture() { return std::make_shared<PixelBuffer>(Size{1, 1}); }

VideoTimeline filled(double rate, const std::vector<double>& dues) {
  VideoTimeline timeline(rate);
  for (const double due : dues) timeline.add(picture(), due);
  return timeline;
}

TEST(VideoTimelineTest, showsAPictureFromItsDueTimeOn) {
  VideoTimeline timeline = filled(30, {0.5});
  EXPECT_FALSE(timeline.take(0.4999));
  EXPECT_TRUE(timeline.take(0.5));
}

TEST(VideoTimelineTest, skipsToTheLatestPictureThatIsDue) {
  VideoTimeline timeline = filled(30, {0, 0.1, 0.2, 0.3});
  EXPECT_DOUBLE_EQ(timeline.take(0.25)->timeSec, 0.2);
  EXPECT_EQ(timeline.pending(), 1U);
}

TEST(VideoTimelineTest, showsOnePictureInEachPeriod) {
  VideoTimeline timeline = filled(30, {0.0, 0.0167, 0.0333});
  EXPECT_TRUE(timeline.take(0.0));
  EXPECT_FALSE(timeline.take(0.02));
  EXPECT_DOUBLE_EQ(timeline.take(0.0334)->timeSec, 0.0333);
}

TEST(VideoTimelineTest, looksAgainWhenThePictureIsDue) {
  VideoTimeline timeline = filled(30, {0.0, 0.2});
  timeline.take(0);
  EXPECT_DOUBLE_EQ(*timeline.nextLook(), 0.2);
}

TEST(VideoTimelineTest, looksNoSoonerThanTheNextPeriod) {
  VideoTimeline timeline = filled(10, {0.0, 0.01});
  timeline.take(0);
  EXPECT_NEAR(*timeline.nextLook(), 0.1, 0.0011);
}

TEST(VideoTimelineTest, hasNothingToLookForWithoutPictures) {
  EXPECT_FALSE(filled(30, {}).nextLook());
}

TEST(VideoTimelineTest, showsEveryPictureOfAFilmAtTheRateOfThePeriods) {
  VideoTimeline timeline(30);
  int shown = 0;
  for (int number = 0; number < 300; ++number) {
    const double due = number / 29.97;
    timeline.add(picture(), due);
    if (timeline.take(due + 0.0001)) ++shown;
  }
  EXPECT_EQ(shown, 300);
}

}  // namespace
}  // namespace lenslark
