#include "codecs/video/Patience.h"

#include <gtest/gtest.h>

namespace lenslark::video {
namespace {

TEST(PatienceTest, endsWhenItsTimeIsUp) {
  Patience patience;
  patience.begin(100, 20);
  for (double now = 100; now <= 120; now += 0.5) EXPECT_FALSE(patience.isOver(now)) << now;
  EXPECT_TRUE(patience.isOver(120.5));
}

TEST(PatienceTest, outlivesAPauseOfTheProcess) {
  Patience patience;
  patience.begin(100, 20);
  EXPECT_FALSE(patience.isOver(101));
  EXPECT_FALSE(patience.isOver(3600));
  EXPECT_FALSE(patience.isOver(3600.5));
}

TEST(PatienceTest, endsAlsoAfterManySlowSteps) {
  Patience patience;
  patience.begin(0, 20);
  int steps = 0;
  while (!patience.isOver(10.0 * ++steps)) {
  }
  EXPECT_EQ(steps, 21);
}

TEST(PatienceTest, beginsAnew) {
  Patience patience;
  patience.begin(0, 0.5);
  EXPECT_TRUE(patience.isOver(1));
  patience.begin(1, 0.5);
  EXPECT_FALSE(patience.isOver(1.2));
}

TEST(PatienceTest, isEndlessBeforeItBegins) {
  Patience patience;
  EXPECT_FALSE(patience.isOver(1e9));
}

}  // namespace
}  // namespace lenslark::video
