#include "sources/SlideshowSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>

#include "base/Error.h"
#include "media/MediaError.h"
#include "support/Eventually.h"
#include "support/FakeSources.h"

namespace lenslark {
namespace {

/// Pictures by name, and the order in which they were asked for and shown.
struct Album {
  FramePtr load(const std::filesystem::path& file) {
    const std::lock_guard lock(mutex);
    asked.push_back(file.string());
    if (file == broken) return nullptr;
    if (file == failing) throw Error("no codec");
    auto& picture = pictures[file.string()];
    if (!picture) picture = plainPicture({2, 2});
    return picture;
  }
  void show(const FramePtr& frame) {
    const std::lock_guard lock(mutex);
    for (const auto& [name, picture] : pictures)
      if (picture == frame) shown.push_back(name);
    times.push_back(std::chrono::steady_clock::now());
  }
  std::vector<std::string> names() {
    const std::lock_guard lock(mutex);
    return shown;
  }
  std::vector<std::string> firstNames(std::size_t count) {
    auto first = names();
    first.resize(std::min(count, first.size()));
    return first;
  }

  std::mutex mutex;
  std::filesystem::path broken = "/broken";
  std::filesystem::path failing = "/failing";
  std::map<std::string, FramePtr> pictures;
  std::vector<std::string> asked;
  std::vector<std::string> shown;
  std::vector<std::chrono::steady_clock::time_point> times;
};

std::unique_ptr<SlideshowSource> show(const std::shared_ptr<Album>& album,
                                      std::vector<std::filesystem::path> files,
                                      double intervalSec = 0.5) {
  auto source = std::make_unique<SlideshowSource>(
      std::move(files), intervalSec, [album](const auto& file) { return album->load(file); });
  source->start([album](const FramePtr& frame) { album->show(frame); });
  return source;
}

TEST(SlideshowSourceTest, holdsTheIntervalBetweenHalfASecondAndAMinute) {
  const auto interval = [](double seconds) { return SlideshowSource({}, seconds).intervalSec(); };
  EXPECT_EQ(interval(0.1), 0.5);
  EXPECT_EQ(interval(600), 60);
  EXPECT_EQ(interval(3.25), 3.25);
  EXPECT_EQ(interval(-1), 0.5);
  EXPECT_EQ(interval(std::numeric_limits<double>::infinity()), 60);
  EXPECT_EQ(interval(std::numeric_limits<double>::quiet_NaN()), 0.5);
}

TEST(SlideshowSourceTest, refusesToShowNothing) {
  SlideshowSource source({}, 3);
  try {
    source.start([](const FramePtr&) {});
    FAIL() << "started";
  } catch (const MediaError& error) {
    EXPECT_NE(std::string(error.what()).find("slideshow images"), std::string::npos);
  }
}

TEST(SlideshowSourceTest, isStill) { EXPECT_EQ(SlideshowSource({}, 3).kind(), ContentKind::still); }

TEST(SlideshowSourceTest, showsTheFirstPictureAtOnce) {
  const auto album = std::make_shared<Album>();
  const auto source = show(album, {"/a", "/b"}, 60);
  EXPECT_TRUE(eventually([&] { return album->names() == std::vector<std::string>{"/a"}; }));
  source->stop();
}

// Times are compared in one direction only, and none with one that a busy machine may put off.

TEST(SlideshowSourceTest, showsEachPictureInTurn) {
  const auto album = std::make_shared<Album>();
  const auto begin = std::chrono::steady_clock::now();
  const auto source = show(album, {"/a", "/b"});
  ASSERT_TRUE(eventually([&] { return album->names().size() >= 3; }));
  source->stop();
  EXPECT_EQ(album->firstNames(3), (std::vector<std::string>{"/a", "/b", "/a"}));
  EXPECT_GE(album->times[2] - begin, std::chrono::milliseconds(1000));
}

TEST(SlideshowSourceTest, passesOverAPictureThatCannotBeReadAtTheSamePace) {
  const auto album = std::make_shared<Album>();
  const auto begin = std::chrono::steady_clock::now();
  const auto source = show(album, {"/a", "/broken", "/c"});
  ASSERT_TRUE(eventually([&] { return album->names().size() >= 3; }));
  source->stop();
  EXPECT_EQ(album->firstNames(3), (std::vector<std::string>{"/a", "/c", "/a"}));
  EXPECT_GE(album->times[1] - begin, std::chrono::milliseconds(1000));
  EXPECT_EQ(source->problem(), std::nullopt);
}

TEST(SlideshowSourceTest, tellsWhyPicturesCannotBeReadAtAll) {
  const auto album = std::make_shared<Album>();
  const auto source = show(album, {"/failing"});
  EXPECT_TRUE(eventually([&] { return source->problem() == "no codec"; }));
  source->stop();
}

TEST(SlideshowSourceTest, showsNothingAfterStop) {
  const auto album = std::make_shared<Album>();
  const auto source = show(album, {"/a"});
  ASSERT_TRUE(eventually([&] { return !album->names().empty(); }));
  source->stop();
  const auto shown = album->names().size();
  EXPECT_FALSE(
      eventually([&] { return album->names().size() > shown; }, std::chrono::milliseconds(700)));
}

TEST(SlideshowSourceTest, stopBeforeStartIsHarmless) {
  SlideshowSource source({"/a"}, 3);
  source.stop();
}

TEST(SlideshowSourceTest, aSlowPictureDelaysTheNextButBringsNoBurst) {
  const auto album = std::make_shared<Album>();
  std::atomic<int> loads = 0;
  SlideshowSource source({"/a", "/b"}, 0.5, [&](const auto& file) {
    if (++loads == 1) std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    return album->load(file);
  });
  source.start([&](const FramePtr& frame) { album->show(frame); });
  ASSERT_TRUE(eventually([&] { return album->names().size() >= 3; }));
  source.stop();
  EXPECT_GE(album->times[2] - album->times[0], std::chrono::milliseconds(500));
}

}  // namespace
}  // namespace lenslark
