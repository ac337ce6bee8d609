#include "sources/VideoPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/Error.h"
#include "support/Eventually.h"
#include "support/FakeSources.h"

namespace lenslark {
namespace {

/// What a film did, and how it is to behave.
struct FilmControls {
  int pictures = 1000;
  double fps = 100;
  double firstTime = 0;
  std::chrono::milliseconds cost{0};  ///< Of each picture.
  int breaksAt = -1;                  ///< The picture that cannot be read.
  int passes = 1000;                  ///< After so many the file is empty.

  std::atomic<int> decoded = 0;
  std::atomic<int> rewinds = 0;
  std::atomic<double> mostLag = 0;
};

/// Pictures are as wide as their number, from 1.
class FakeFilm : public VideoDecoder {
 public:
  explicit FakeFilm(std::shared_ptr<FilmControls> controls) : controls_(std::move(controls)) {
    info_.nominalFps = controls_->fps;
  }

  const VideoInfo& info() const noexcept override { return info_; }

  std::optional<VideoFrame> next() override {
    std::this_thread::sleep_for(controls_->cost);
    if (number_ == controls_->breaksAt) throw Error("the disk is gone");
    if (number_ >= controls_->pictures || controls_->rewinds >= controls_->passes) return {};
    controls_->decoded += 1;
    const double time = controls_->firstTime + number_ / controls_->fps;
    number_ += 1;
    return VideoFrame{plainPicture({number_, 1}), time};
  }

  void rewind() override {
    controls_->rewinds += 1;
    number_ = 0;
  }

  void setLag(double seconds) noexcept override {
    controls_->mostLag = std::max(controls_->mostLag.load(), seconds);
    if (seconds > 0.1) number_ += static_cast<int>(seconds * controls_->fps);
  }

 private:
  const std::shared_ptr<FilmControls> controls_;
  VideoInfo info_;
  int number_ = 0;
};

class VideoPlayerTest : public testing::Test {
 protected:
  ~VideoPlayerTest() override {
    if (player) player->stop();
  }

  void play(bool loop, int maxFPS = 1000) {
    player = std::make_shared<VideoPlayer>(std::make_unique<FakeFilm>(film), loop, maxFPS,
                                           [this](const FramePtr& frame) {
                                             const std::lock_guard lock(mutex);
                                             shown.push_back(frame->size().width - 1);
                                           });
    player->start();
  }

  std::vector<int> numbers() {
    const std::lock_guard lock(mutex);
    return shown;
  }

  bool shows(int number) {
    return eventually([&] {
      const std::vector<int> all = numbers();
      return std::find(all.begin(), all.end(), number) != all.end();
    });
  }

  std::shared_ptr<FilmControls> film = std::make_shared<FilmControls>();
  std::shared_ptr<VideoPlayer> player;
  std::mutex mutex;
  std::vector<int> shown;
};

TEST_F(VideoPlayerTest, loopsByRewindingTheOpenFilm) {
  film->pictures = 5;
  play(true);
  ASSERT_TRUE(eventually([&] { return film->rewinds >= 3; }));
  EXPECT_FALSE(player->problem());
}

TEST_F(VideoPlayerTest, leavesNoGapBetweenPasses) {
  film->pictures = 2;
  film->fps = 20;
  const auto begin = std::chrono::steady_clock::now();
  play(true);
  ASSERT_TRUE(eventually([&] { return film->rewinds >= 40; }, std::chrono::seconds(20)));
  // Forty passes of a tenth of a second; with a gap of one picture behind each it were six.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(5500));
}

TEST_F(VideoPlayerTest, doesNotRewindWithoutLoop) {
  film->pictures = 5;
  play(false);
  ASSERT_TRUE(shows(4));
  EXPECT_EQ(film->rewinds, 0);
  EXPECT_FALSE(player->problem());
}

TEST_F(VideoPlayerTest, decodesAheadButNotTheWholeFilm) {
  film->fps = 0.01;
  play(false);
  ASSERT_TRUE(eventually([&] { return film->decoded >= 6; }));
  EXPECT_FALSE(eventually([&] { return film->decoded > 7; }, std::chrono::milliseconds(100)));
}

TEST_F(VideoPlayerTest, tellsTheDecoderHowFarItIsBehind) {
  film->cost = std::chrono::milliseconds(40);  // four times what there is time for
  play(false);
  EXPECT_TRUE(eventually([&] { return film->mostLag > 0.1; }));
}

TEST_F(VideoPlayerTest, skipsPicturesOfAFilmThatItCannotKeepUpWith) {
  film->cost = std::chrono::milliseconds(40);
  play(false);
  ASSERT_TRUE(eventually([&] { return !numbers().empty() && numbers().back() > 100; }));
  const std::vector<int> all = numbers();
  EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
  EXPECT_LT(all.size(), 60U);
}

TEST_F(VideoPlayerTest, keepsTheReasonWhyAFilmBrokeOff) {
  film->breaksAt = 3;
  play(true);
  ASSERT_TRUE(eventually([&] { return player->problem().has_value(); }));
  EXPECT_EQ(player->problem(), "the disk is gone");
  ASSERT_TRUE(shows(0));
}

TEST_F(VideoPlayerTest, failsToStartWithTheReasonOfTheDecoder) {
  film->breaksAt = 0;
  try {
    play(true);
    FAIL() << "started";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "the disk is gone");
  }
}

TEST_F(VideoPlayerTest, failsToStartWithoutAPicture) {
  film->pictures = 0;
  EXPECT_THROW(play(true), Error);
}

TEST_F(VideoPlayerTest, stopsLoopingOverAFilmThatLostItsPictures) {
  film->pictures = 3;
  film->passes = 2;
  play(true);
  ASSERT_TRUE(eventually([&] { return player->problem().has_value(); }));
  EXPECT_EQ(film->rewinds, 2);
}

TEST_F(VideoPlayerTest, waitsForALateStartOnceAndNotInEachPass) {
  film->pictures = 2;
  film->firstTime = 0.2;
  const auto begin = std::chrono::steady_clock::now();
  play(true);
  ASSERT_TRUE(shows(0));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
  // Were it waited for in each pass, fifty of them would take ten seconds.
  EXPECT_TRUE(eventually([&] { return film->rewinds >= 50; }, std::chrono::seconds(9)));
}

}  // namespace
}  // namespace lenslark
