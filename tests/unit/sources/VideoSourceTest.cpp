#include "sources/VideoSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "base/Clock.h"
#include "base/Error.h"
#include "support/Clips.h"
#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

/// Notes the number of each picture and when it came.
class Watcher {
 public:
  FrameSource::Emit emit() {
    return [this](const FramePtr& frame) {
      const double now = Clock::uptimeSeconds();
      const std::lock_guard lock(mutex_);
      numbers_.push_back(Clips::numberIn(*frame));
      times_.push_back(now);
    };
  }

  std::vector<int> numbers() const {
    const std::lock_guard lock(mutex_);
    return numbers_;
  }

  /// When the latest picture came, on the uptime clock.
  double lastTime() const {
    const std::lock_guard lock(mutex_);
    return times_.back();
  }

  bool sees(std::size_t count) const {
    return eventually([&] { return numbers().size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<int> numbers_;
  std::vector<double> times_;
};

class VideoSourceTest : public testing::Test {
 protected:
  std::string film(double fps, double seconds) {
    return Clips::make(directory / "film.mp4", Clips::numbered(fps, seconds) + Clips::h264);
  }

  TemporaryDirectory directory;
  Watcher watcher;
};

bool rises(const std::vector<int>& numbers) {
  return std::is_sorted(numbers.begin(), numbers.end()) &&
         std::adjacent_find(numbers.begin(), numbers.end()) == numbers.end();
}

TEST_F(VideoSourceTest, isVideo) {
  EXPECT_EQ(VideoSource("x.mp4", true, 30).kind(), ContentKind::video);
}

TEST_F(VideoSourceTest, beginsWithTheFirstPicture) {
  VideoSource source(film(20, 0.5), false, 30);
  source.start(watcher.emit());
  ASSERT_TRUE(watcher.sees(1));
  EXPECT_EQ(watcher.numbers().front(), 0);
}

TEST_F(VideoSourceTest, showsPicturesInOrderUpToTheLast) {
  VideoSource source(film(20, 1), false, 30);
  source.start(watcher.emit());
  ASSERT_TRUE(
      eventually([&] { return !watcher.numbers().empty() && watcher.numbers().back() == 19; }));
  EXPECT_TRUE(rises(watcher.numbers()));
}

TEST_F(VideoSourceTest, takesAsLongAsTheFilm) {
  VideoSource source(film(20, 1), false, 30);
  const double begin = Clock::uptimeSeconds();
  source.start(watcher.emit());
  ASSERT_TRUE(
      eventually([&] { return !watcher.numbers().empty() && watcher.numbers().back() == 19; }));
  EXPECT_GE(watcher.lastTime() - begin, 0.94);
}

TEST_F(VideoSourceTest, playsAFasterFilmAtItsOwnSpeed) {
  VideoSource source(film(60, 1), false, 10);
  const double begin = Clock::uptimeSeconds();
  source.start(watcher.emit());
  ASSERT_TRUE(
      eventually([&] { return !watcher.numbers().empty() && watcher.numbers().back() >= 54; }));
  EXPECT_LE(watcher.numbers().size(), 11U);
  EXPECT_GE(watcher.lastTime() - begin, 0.85);
}

TEST_F(VideoSourceTest, beginsAgainAfterTheLastPictureWhenItLoops) {
  VideoSource source(film(20, 0.5), true, 30);
  source.start(watcher.emit());
  const auto beginOfSecondPass = [](const std::vector<int>& numbers) {
    return std::is_sorted_until(numbers.begin(), numbers.end());
  };
  ASSERT_TRUE(eventually([&] {
    const std::vector<int> numbers = watcher.numbers();
    return beginOfSecondPass(numbers) != numbers.end();
  }));
  source.stop();
  const std::vector<int> numbers = watcher.numbers();
  // Of pictures that are overdue on a busy machine some are left out.
  const auto second = beginOfSecondPass(numbers);
  EXPECT_GE(*(second - 1), 5);
  EXPECT_LE(*second, 4);
}

TEST_F(VideoSourceTest, isSilentAfterStop) {
  VideoSource source(film(30, 1), true, 30);
  source.start(watcher.emit());
  ASSERT_TRUE(watcher.sees(2));
  source.stop();
  const std::size_t count = watcher.numbers().size();
  EXPECT_FALSE(
      eventually([&] { return watcher.numbers().size() > count; }, std::chrono::milliseconds(150)));
}

TEST_F(VideoSourceTest, failsToStartWithoutAFilm) {
  VideoSource source(directory.write("t.mp4", "no film"), true, 30);
  EXPECT_THROW(source.start(watcher.emit()), Error);
}

TEST_F(VideoSourceTest, stopsWithoutHavingStarted) {
  VideoSource source("x.mp4", true, 30);
  source.stop();
  EXPECT_TRUE(watcher.numbers().empty());
}

}  // namespace
}  // namespace lenslark
