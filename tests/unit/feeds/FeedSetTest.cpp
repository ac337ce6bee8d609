#include "feeds/FeedSet.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <latch>
#include <mutex>

#include "base/Error.h"
#include "codecs/Modules.h"
#include "feeds/FeedReader.h"
#include "support/Eventually.h"
#include "support/FakeSources.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr Compositor::Color red{200, 0, 0, 255};
constexpr Compositor::Color green{0, 200, 0, 255};

class FollowingSource final : public WindowFollowingSource {
 public:
  ContentKind kind() const noexcept override { return ContentKind::live; }
  void start(Emit) override {}
  void stop() override {}
  bool track() override { return false; }
};

/// Sources are patterns: their rate tells them apart.
class FeedSetTest : public testing::Test {
 protected:
  using Controls = ManualSource::Controls;

  FeedSetTest() {
    feeds = std::make_unique<FeedSet>(
        queue, FeedSet::Hooks{
                   .makeSource = [this](const SourceDescription& source) { return make(source); },
                   .onShow = [this](const auto& ids) { shown.insert(ids.begin(), ids.end()); }});
  }
  ~FeedSetTest() override {
    std::vector<std::future<void>> results;
    queue->sync([&] {
      results = feeds->close();
      feeds.reset();
    });
    for (auto& result : results) result.wait();
  }

  std::unique_ptr<FrameSource> make(const SourceDescription& description) {
    ++made;
    if (std::holds_alternative<SourceDescription::Desktop>(description.value))
      return std::make_unique<FollowingSource>();
    const auto* pattern = std::get_if<SourceDescription::Pattern>(&description.value);
    const auto* display = std::get_if<SourceDescription::Display>(&description.value);
    return std::make_unique<ManualSource>(source(pattern ? pattern->fps : display->fps));
  }

  /// Asked for by the test and, when a source is made, by the queue.
  std::shared_ptr<Controls> source(int number) {
    const std::lock_guard lock(sourcesMutex);
    auto& controls = sources[number];
    if (!controls) controls = std::make_shared<Controls>();
    return controls;
  }

  WantedFeed want(const std::string& name, int number, LLCamera camera = LLCameraDevice) {
    WantedFeed feed;
    feed.path = (directory / name).string();
    feed.camera = camera;
    feed.device = DeviceKey::ios("U");
    feed.source = {"pattern:" + std::to_string(number),
                   {SourceDescription::Pattern{number}},
                   {"sha256:" + std::to_string(number)}};
    return feed;
  }

  void apply(const std::vector<WantedFeed>& wanted) {
    queue->sync([&] { feeds->apply(wanted); });
  }
  bool heartbeat() {
    return queue->sync([&] { return feeds->heartbeat(); });
  }

  /// Emits a picture as soon as the source runs.
  void emit(int number, Compositor::Color color) {
    const auto controls = source(number);
    ASSERT_TRUE(eventually([&] { return controls->running(); }));
    controls->emit(plainPicture({16, 8}, color));
  }

  bool exists(const std::string& name) const { return std::filesystem::exists(directory / name); }

  /// Red, green or neither, as a reader of the file sees it.
  std::string color(const std::string& name) const {
    const auto picture = FeedReader::image((directory / name).string());
    if (!picture) return "none";
    const auto* pixel = picture->view().row(0);
    return pixel[2] > 100 ? "red" : pixel[1] > 100 ? "green" : "black";
  }

  TemporaryDirectory directory;
  std::shared_ptr<SerialQueue> queue = std::make_shared<SerialQueue>("test");
  std::mutex sourcesMutex;
  std::map<int, std::shared_ptr<Controls>> sources;  // guarded by `sourcesMutex`
  std::set<std::string> shown;
  int made = 0;
  std::vector<WantedFeed> lastWanted;
  std::unique_ptr<FeedSet> feeds;
};

TEST_F(FeedSetTest, opensAFileAndShowsItsSource) {
  apply({want("a", 1)});
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(feeds->openPaths(), std::set{(directory / "a").string()});
}

TEST_F(FeedSetTest, aFeedFileHasRoomForTwoOfTheLargestFrames) {
  apply({want("a", 1)});
  EXPECT_EQ(std::filesystem::file_size(directory / "a"), 4096U + 2U * 16'777'216U);
}

TEST_F(FeedSetTest, aFreshFileIsAliveAtOnce) {
  apply({want("one", 1), want("two", 2)});
  for (const char* name : {"one", "two"}) {
    const auto info = FeedReader::info((directory / name).string());
    ASSERT_TRUE(info) << name;
    EXPECT_TRUE(info->heartbeatAge) << name;
  }
}

TEST_F(FeedSetTest, aFreshFileHasNoFrame) {
  apply({want("a", 1)});
  EXPECT_EQ(color("a"), "none");
}

TEST_F(FeedSetTest, equalKeysShareOneSource) {
  apply({want("a", 1), want("b", 1)});
  emit(1, red);
  EXPECT_EQ(made, 1);
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(color("b"), "red");
}

TEST_F(FeedSetTest, changingOneOfTwoLeavesTheSourceOfTheOther) {
  apply({want("a", 1), want("b", 1)});
  emit(1, red);
  apply({want("a", 2), want("b", 1)});
  emit(2, green);
  EXPECT_EQ(color("a"), "green");
  EXPECT_EQ(color("b"), "red");
  EXPECT_EQ(source(1)->stops, 0);
}

TEST_F(FeedSetTest, aSourceThatNobodyShowsAnyMoreStops) {
  apply({want("a", 1)});
  emit(1, red);
  apply({want("a", 2)});
  EXPECT_TRUE(eventually([&] { return source(1)->stops == 1; }));
}

TEST_F(FeedSetTest, aCameraKeepsItsPictureUntilTheNewSourceHasOne) {
  apply({want("a", 1)});
  emit(1, red);
  apply({want("a", 2)});
  EXPECT_EQ(color("a"), "red");
}

TEST_F(FeedSetTest, aLateFrameOfTheOldSourceIsNotShown) {
  source(1)->onStop = [] {};
  apply({want("a", 1), want("b", 1)});
  emit(1, red);
  apply({want("a", 2), want("b", 1)});
  emit(2, green);
  emit(1, red);
  EXPECT_EQ(color("a"), "green");
}

TEST_F(FeedSetTest, aRestyledFeedKeepsItsSource) {
  apply({want("a", 1)});
  emit(1, red);
  auto feed = want("a", 1);
  feed.style.fill = false;
  feed.sceneMode = LLSceneModeFill;
  apply({feed});
  EXPECT_EQ(made, 1);
  EXPECT_TRUE(FeedReader::info(feed.path)->fill);
}

TEST_F(FeedSetTest, theSceneModeIsWritten) {
  auto feed = want("a", 1);
  feed.sceneMode = LLSceneModeFill;
  apply({feed});
  EXPECT_TRUE(FeedReader::info(feed.path)->fill);
  feed.sceneMode = LLSceneModeFit;
  apply({feed});
  EXPECT_FALSE(FeedReader::info(feed.path)->fill);
}

TEST_F(FeedSetTest, aFileThatIsNotWantedDisappears) {
  apply({want("a", 1), want("b", 2)});
  apply({want("b", 2)});
  EXPECT_FALSE(exists("a"));
  EXPECT_TRUE(exists("b"));
}

TEST_F(FeedSetTest, aFileThatSomebodyPutInThePlaceOfOursStays) {
  apply({want("a", 1)});
  std::filesystem::remove(directory / "a");
  directory.write("a", "somebody else's");
  apply({});
  EXPECT_TRUE(exists("a"));
}

TEST_F(FeedSetTest, twoFilesInPlaceOfOneShowItsPictureFromTheStart) {
  apply({want("device", 1)});
  emit(1, red);
  apply({want("back", 1, LLCameraBack), want("front", 2, LLCameraFront)});
  EXPECT_EQ(color("back"), "red");
  EXPECT_EQ(color("front"), "red") << "until its own source has a picture";
  EXPECT_FALSE(exists("device"));
  emit(2, green);
  EXPECT_EQ(color("front"), "green");
}

TEST_F(FeedSetTest, oneFileInPlaceOfTwoShowsTheBackCamerasPicture) {
  apply({want("back", 1, LLCameraBack), want("front", 2, LLCameraFront)});
  emit(1, red);
  emit(2, green);
  apply({want("device", 3)});
  EXPECT_EQ(color("device"), "red");
  EXPECT_FALSE(exists("back"));
  EXPECT_FALSE(exists("front"));
}

TEST_F(FeedSetTest, noReaderSeesAGapWhileTwoFilesTakeThePlaceOfOne) {
  apply({want("device", 1)});
  emit(1, red);
  std::atomic<bool> done = false;
  std::atomic<int> gaps = 0;
  std::atomic<int> looks = 0;
  std::jthread reader([&] {
    while (!done) {
      // As readers look for them: the camera's own file first, then the device's, then once more.
      const auto seen = [&](const char* name) { return color(name) == "red"; };
      if (!seen("back") && !seen("device") && !seen("back")) ++gaps;
      ++looks;
    }
  });
  for (int round = 0; round < 20; ++round) {
    apply({want("back", 1, LLCameraBack), want("front", 1, LLCameraFront)});
    apply({want("device", 1)});
  }
  EXPECT_TRUE(eventually([&] { return looks > 0; }));
  done = true;
  reader.join();
  EXPECT_EQ(gaps, 0);
}

TEST_F(FeedSetTest, otherDevicesPicturesAreNotBorrowed) {
  apply({want("a", 1)});
  emit(1, red);
  auto stranger = want("b", 2);
  stranger.device = DeviceKey::ios("V");
  apply({want("a", 1), stranger});
  EXPECT_EQ(color("b"), "none");
}

TEST_F(FeedSetTest, aFileThatCannotBeOpenedIsLeftOutAndTriedAgain) {
  std::filesystem::create_directory(directory / "a");
  directory.write("a/keeps-it", "");
  apply({want("a", 1), want("b", 2)});
  EXPECT_TRUE(feeds->hasFailedFiles());
  EXPECT_EQ(feeds->openPaths(), std::set{(directory / "b").string()});
  std::filesystem::remove_all(directory / "a");
  apply({want("a", 1), want("b", 2)});
  EXPECT_FALSE(feeds->hasFailedFiles());
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
}

TEST_F(FeedSetTest, aFailedFileIsForgottenWithItsFeed) {
  apply({want("no-such-directory/a", 1)});
  EXPECT_TRUE(feeds->hasFailedFiles());
  apply({});
  EXPECT_FALSE(feeds->hasFailedFiles());
}

TEST_F(FeedSetTest, theHeartbeatMarksFilesAsAlive) {
  apply({want("a", 1)});
  EXPECT_FALSE(heartbeat());
  const auto age = FeedReader::info((directory / "a").string())->heartbeatAge;
  ASSERT_TRUE(age);
  EXPECT_LT(*age, 5);
}

TEST_F(FeedSetTest, aRemovedFileIsMadeAnewWithItsPicture) {
  apply({want("a", 1)});
  emit(1, red);
  std::filesystem::remove(directory / "a");
  EXPECT_FALSE(heartbeat());
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(made, 1);
  emit(1, green);
  EXPECT_EQ(color("a"), "green");
}

TEST_F(FeedSetTest, aFileThatWasCutShortIsMadeAnew) {
  auto feed = want("a", 1);
  feed.sceneMode = LLSceneModeFill;
  apply({feed});
  emit(1, red);
  ASSERT_EQ(::truncate(feed.path.c_str(), 100), 0);
  EXPECT_FALSE(heartbeat());
  EXPECT_EQ(color("a"), "red");
  const auto info = FeedReader::info(feed.path);
  EXPECT_EQ(info->writerPid, ::getpid());
  EXPECT_TRUE(info->fill);
}

TEST_F(FeedSetTest, aFileThatCannotBeMadeAnewIsLost) {
  apply({want("a", 1)});
  std::filesystem::remove(directory / "a");
  std::filesystem::create_directory(directory / "a");
  directory.write("a/keeps-it", "");
  EXPECT_TRUE(heartbeat());
  EXPECT_TRUE(feeds->openPaths().empty());
  EXPECT_TRUE(feeds->hasFailedFiles());
  EXPECT_TRUE(eventually([&] { return source(1)->stops == 1; }));
}

TEST_F(FeedSetTest, closingLeavesTheFilesWithoutAWriter) {
  apply({want("a", 1)});
  emit(1, red);
  auto results = queue->sync([&] { return feeds->close(); });
  for (auto& result : results) result.wait();
  EXPECT_EQ(FeedReader::info((directory / "a").string())->writerPid, 0);
  EXPECT_EQ(source(1)->stops, 1);
}

TEST_F(FeedSetTest, closingDoesNotWaitForASourceThatHangs) {
  std::latch go(1);
  source(1)->onStop = [&] { go.wait(); };
  apply({want("a", 1)});
  emit(1, red);
  auto results = queue->sync([&] { return feeds->close(); });
  EXPECT_EQ(FeedReader::info((directory / "a").string())->writerPid, 0);
  EXPECT_EQ(results.at(0).wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  go.count_down();
  results[0].wait();
}

TEST_F(FeedSetTest, errorsOfSourcesAreKept) {
  source(1)->onStart = [] { throw Error("no such thing"); };
  apply({want("a", 1), want("b", 2)});
  EXPECT_TRUE(eventually([&] {
    return queue->sync([&] { return feeds->sourceErrors(); }) ==
           std::vector<std::string>{"no such thing"};
  }));
}

TEST_F(FeedSetTest, framesOfAllSourcesAreCounted) {
  apply({want("a", 1), want("b", 2)});
  emit(1, red);
  emit(2, red);
  emit(2, green);
  EXPECT_EQ(queue->sync([&] { return feeds->framesCaptured(); }), 3U);
}

TEST_F(FeedSetTest, aCaptureThatFailedIsTriedAgain) {
  std::atomic<bool> there = false;
  source(1)->onStart = [&] {
    if (!there) throw Error("no display at index 0");
  };
  auto feed = want("a", 1);
  feed.source.source = {SourceDescription::Display{0, 1}};
  apply({feed});
  ASSERT_TRUE(
      eventually([&] { return !queue->sync([&] { return feeds->sourceErrors(); }).empty(); }));
  there = true;
  queue->sync([&] { feeds->retryCaptures(); });
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(made, 2);
}

TEST_F(FeedSetTest, onlyCapturesAreTriedAgain) {
  source(1)->onStart = [] { throw Error("not a picture"); };
  apply({want("a", 1)});
  ASSERT_TRUE(
      eventually([&] { return !queue->sync([&] { return feeds->sourceErrors(); }).empty(); }));
  queue->sync([&] { feeds->retryCaptures(); });
  EXPECT_EQ(made, 1);
}

TEST_F(FeedSetTest, tellsWhoFollowsAWindow) {
  auto following = want("a", 1);
  following.source = {"desktop:1:30", {SourceDescription::Desktop{}}, {}};
  apply({following, want("b", 2)});
  EXPECT_EQ(feeds->followers().size(), 1U);
  apply({want("b", 2)});
  EXPECT_TRUE(feeds->followers().empty());
}

TEST_F(FeedSetTest, tellsWhichMediaBeginsToBeShown) {
  apply({want("a", 1)});
  EXPECT_EQ(shown, std::set<std::string>{"sha256:1"});
  shown.clear();
  apply({want("a", 1), want("b", 1)});
  EXPECT_TRUE(shown.empty());
  EXPECT_EQ(feeds->shownMedia(), std::set<std::string>{"sha256:1"});
}

/// A feed that is fitted, with a green overlay over all of it.
class FeedSetOverlayTest : public FeedSetTest {
 protected:
  FeedSetOverlayTest() {
    feeds->onOverlay([this] { feeds->apply(lastWanted); });
  }

  WantedFeed wantOverlay(const std::string& name, int number, const std::string& file) {
    auto feed = want(name, number);
    feed.style.overlay = OverlaySpec{"sha256:" + file, Anchor::topLeft, 1, 1, 0.5, 0.5};
    feed.style.fill = false;
    feed.overlayFile = directory / file;
    return feed;
  }

  std::filesystem::path writeOverlay(const std::string& name) {
    const auto png = Modules::imageCodec().encodePng(plainPicture({16, 8}, green)->view());
    return directory.write(name, {reinterpret_cast<const char*>(png.data()), png.size()});
  }

  void applyNow(const std::vector<WantedFeed>& wanted) {
    lastWanted = wanted;
    feeds->apply(wanted);
  }

  /// What lies in the middle of the file, where the overlay is.
  std::string middle(const std::string& name) const {
    const auto picture = FeedReader::image((directory / name).string());
    if (!picture) return "none";
    const auto* pixel = picture->view().row(4) + 8 * 4;
    return pixel[2] > 100 ? "red" : pixel[1] > 100 ? "green" : "black";
  }
};

TEST_F(FeedSetOverlayTest, aPictureIsNeverShownWithoutIt) {
  writeOverlay("overlay.png");
  // What has been decoded arrives on the queue, and so not before this is done.
  queue->sync([&] {
    applyNow({wantOverlay("a", 1, "overlay.png")});
    emit(1, red);
    EXPECT_TRUE(exists("a"));
    EXPECT_EQ(middle("a"), "none");
  });
  EXPECT_TRUE(eventually([&] { return middle("a") == "green"; }));
  EXPECT_TRUE(shown.contains("sha256:overlay.png"));
}

TEST_F(FeedSetOverlayTest, aFeedStaysAsItIsUntilItsNewOneIsDecoded) {
  apply({want("a", 1)});
  emit(1, red);
  writeOverlay("overlay.png");
  queue->sync([&] {
    applyNow({wantOverlay("a", 2, "overlay.png")});
    emit(1, red);
    EXPECT_EQ(middle("a"), "red");
  });
  ASSERT_TRUE(eventually([&] { return source(2)->running(); }));
  emit(2, red);
  EXPECT_TRUE(eventually([&] { return middle("a") == "green"; }));
}

TEST_F(FeedSetOverlayTest, oneThatCannotBeDecodedIsLeftOut) {
  directory.write("overlay.png", "not a picture");
  queue->sync([&] { applyNow({wantOverlay("a", 1, "overlay.png")}); });
  emit(1, red);
  EXPECT_TRUE(eventually([&] { return middle("a") == "red"; }));
}

TEST_F(FeedSetOverlayTest, aFileThatIsMadeAnewStillWaitsForIt) {
  writeOverlay("overlay.png");
  queue->sync([&] {
    applyNow({wantOverlay("a", 1, "overlay.png")});
    emit(1, red);
    std::filesystem::remove(directory / "a");
    feeds->heartbeat();
    EXPECT_EQ(middle("a"), "none");
  });
  EXPECT_TRUE(eventually([&] { return middle("a") == "green"; }));
}

}  // namespace
}  // namespace lenslark
