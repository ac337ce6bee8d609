#include "feeds/FeedSet.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <latch>
#include <mutex>

#include "base/Error.h"
#include "codecs/Modules.h"
#include "feeds/FeedReader.h"
#include "feeds/SharedFrameWriter.h"
#include "lenslark/frame_file.h"
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

/// A picture that is drawn only while its gate is open: whoever draws it waits until then.
class GatedPicture final : public Frame {
 public:
  struct Gate {
    void set(bool isOpen) {
      const std::lock_guard lock(mutex);
      open = isOpen;
      changed.notify_all();
    }
    void pass() {
      std::unique_lock lock(mutex);
      ++waiting;
      changed.wait(lock, [this] { return open; });
      --waiting;
    }
    int held() {
      const std::lock_guard lock(mutex);
      return waiting;
    }

    std::mutex mutex;  // guards all below
    std::condition_variable changed;
    bool open = true;
    int waiting = 0;
  };

  GatedPicture(std::shared_ptr<Gate> gate, Compositor::Color color)
      : gate_(std::move(gate)), color_(color) {}
  Size size() const noexcept override { return {16, 8}; }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect&, const PixelSpan& target) const noexcept override {
    gate_->pass();
    Compositor::fill(target, color_);
    return true;
  }

 private:
  const std::shared_ptr<Gate> gate_;
  const Compositor::Color color_;
};

/// Sources are patterns: their rate tells them apart.
class FeedSetTest : public testing::Test {
 protected:
  using Controls = ManualSource::Controls;

  FeedSetTest() {
    feeds = std::make_shared<FeedSet>(
        queue, FeedSet::Hooks{
                   .makeSource = [this](const SourceDescription& source) { return make(source); },
                   .onShow = [this](const auto& ids) { shown.insert(ids.begin(), ids.end()); },
                   .owner = [this] { return feeds; }});
    feeds->onFile([this] { ++told; });
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

  void settle() {
    queue->sync([&] { return feeds->settled(); }).wait();
  }
  void apply(const std::vector<WantedFeed>& wanted) {
    queue->sync([&] { feeds->apply(wanted); });
    settle();
  }
  void heartbeat() {
    queue->sync([&] { feeds->heartbeat(); });
    settle();
  }
  std::set<std::string> openPaths() {
    return queue->sync([&] { return feeds->openPaths(); });
  }

  /// Emits a picture as soon as the source runs.
  void emit(int number, Compositor::Color color) {
    const auto controls = source(number);
    ASSERT_TRUE(eventually([&] { return controls->running(); }));
    controls->emit(plainPicture({16, 8}, color));
  }

  void awaitError() {
    ASSERT_TRUE(
        eventually([&] { return !queue->sync([&] { return feeds->sourceErrors(); }).empty(); }));
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
  int told = 0;
  std::vector<WantedFeed> lastWanted;
  std::shared_ptr<FeedSet> feeds;
};

TEST_F(FeedSetTest, opensAFileAndShowsItsSource) {
  apply({want("a", 1)});
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(openPaths(), std::set{(directory / "a").string()});
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

class FeedSetLeftoverTest : public FeedSetTest {
 protected:
  std::string path(const std::string& name) const { return (directory / name).string(); }

  /// What a process has closed at its end.
  void leave(const std::string& name) { SharedFrameWriter(path(name), 16, 8, LLCameraFront); }

  void remove(const std::set<std::string>& names) {
    std::set<std::string> paths;
    for (const auto& name : names) paths.insert(path(name));
    queue->sync([&] { feeds->removeLeftovers(paths); });
    settle();
  }
  void retry() {
    queue->sync([&] { feeds->retryLeftovers(); });
    settle();
  }

  /// Overwrites the last sign of life.
  void setHeartbeat(const std::string& name, std::uint64_t nanoseconds) const {
    std::fstream file(path(name), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offsetof(LLFrameHeader, heartbeat));
    file.write(reinterpret_cast<const char*>(&nanoseconds), sizeof nanoseconds);
  }
};

TEST_F(FeedSetLeftoverTest, whatAnEarlierProcessLeftIsRemoved) {
  leave("a");
  leave("a-front");
  apply({want("a", 1)});
  remove({"a-front", "a-back"});
  EXPECT_FALSE(exists("a-front"));
  EXPECT_TRUE(exists("a"));
}

TEST_F(FeedSetLeftoverTest, whatIsBeingWrittenStays) {
  SharedFrameWriter writer(path("a-front"), 16, 8, LLCameraFront);
  writer.heartbeat();
  remove({"a-front"});
  EXPECT_TRUE(exists("a-front"));
}

TEST_F(FeedSetLeftoverTest, whatAKilledProcessLeftIsRemovedOnceItsHeartHasStopped) {
  SharedFrameWriter writer(path("a-front"), 16, 8, LLCameraFront);
  writer.heartbeat();
  remove({"a-front"});
  setHeartbeat("a-front", 1);
  retry();
  EXPECT_FALSE(exists("a-front"));
}

TEST_F(FeedSetLeftoverTest, whatIsNoFrameFileStays) {
  std::ofstream(path("a-front")) << std::string(5000, '\0');
  remove({"a-front"});
  EXPECT_TRUE(exists("a-front"));
}

TEST_F(FeedSetLeftoverTest, aFileThatIsWantedByThenStays) {
  leave("a-front");
  queue->sync([&] {
    feeds->removeLeftovers({path("a-front")});
    feeds->apply({want("a-front", 1)});
  });
  settle();
  EXPECT_TRUE(exists("a-front"));
  EXPECT_EQ(openPaths(), std::set{path("a-front")});
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
  EXPECT_EQ(openPaths(), std::set{(directory / "b").string()});
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
  heartbeat();
  const auto age = FeedReader::info((directory / "a").string())->heartbeatAge;
  ASSERT_TRUE(age);
  EXPECT_LT(*age, 5);
}

TEST_F(FeedSetTest, aRemovedFileIsMadeAnewWithItsPicture) {
  apply({want("a", 1)});
  emit(1, red);
  std::filesystem::remove(directory / "a");
  heartbeat();
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
  heartbeat();
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
  const int before = told;
  heartbeat();
  EXPECT_EQ(told, before + 1);
  EXPECT_TRUE(openPaths().empty());
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
  awaitError();
  there = true;
  queue->sync([&] { feeds->retryFailures(); });
  settle();
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
  EXPECT_EQ(made, 2);
}

TEST_F(FeedSetTest, aPictureThatCouldNotBeOpenedIsTriedAgain) {
  std::atomic<bool> there = false;
  source(1)->onStart = [&] {
    if (!there) throw Error("Too many open files");
  };
  apply({want("a", 1)});
  awaitError();
  there = true;
  queue->sync([&] { feeds->retryFailures(); });
  settle();
  emit(1, red);
  EXPECT_EQ(color("a"), "red");
}

TEST_F(FeedSetTest, aPictureThatNeverOpensIsTriedLessAndLess) {
  source(1)->onStart = [] { throw Error("not a picture"); };
  apply({want("a", 1)});
  std::vector<int> attempts;
  for (int round = 1; round <= 31; ++round) {
    awaitError();
    const int before = made;
    queue->sync([&] { feeds->retryFailures(); });
    if (made > before) attempts.push_back(round);
  }
  EXPECT_EQ(attempts, (std::vector{1, 3, 7, 15, 27}));
}

TEST_F(FeedSetTest, aSourceThatRunsIsNotStartedAgain) {
  apply({want("a", 1)});
  emit(1, red);
  queue->sync([&] { feeds->retryFailures(); });
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

/// A device's one file, red, is to become two; the opening of the new ones is held up.
class FeedSetOpeningTest : public FeedSetTest {
 protected:
  FeedSetOpeningTest() {
    apply({want("device", 1)});
    const auto controls = source(1);
    EXPECT_TRUE(eventually([&] { return controls->running(); }));
    controls->emit(std::make_shared<GatedPicture>(gate, red));
    gate->set(false);
  }
  ~FeedSetOpeningTest() override { gate->set(true); }

  WantedFeed back(int number = 2) { return want("back", number, LLCameraBack); }
  WantedFeed front(int number = 3) { return want("front", number, LLCameraFront); }

  /// Returns while the files are being opened.
  void beginToOpen(const std::vector<WantedFeed>& wanted) {
    queue->sync([&] { feeds->apply(wanted); });
    const int fresh = static_cast<int>(wanted.size());
    ASSERT_TRUE(eventually([&] { return gate->held() == fresh; }));
  }
  void applyNow(const std::vector<WantedFeed>& wanted) {
    queue->sync([&] { feeds->apply(wanted); });
  }
  void openGate() {
    gate->set(true);
    settle();
  }
  std::string path(const char* name) const { return (directory / name).string(); }
  int writerOf(const char* name) const { return FeedReader::info(path(name))->writerPid; }

  std::shared_ptr<GatedPicture::Gate> gate = std::make_shared<GatedPicture::Gate>();
};

TEST_F(FeedSetOpeningTest, theQueueIsFreeMeanwhile) {
  beginToOpen({back(), front()});
  queue->sync([&] { feeds->heartbeat(); });
  EXPECT_TRUE(queue->sync([&] { return feeds->isOpening(); }));
  openGate();
  EXPECT_FALSE(queue->sync([&] { return feeds->isOpening(); }));
}

TEST_F(FeedSetOpeningTest, theOldFileStaysUntilAllThatReplaceItAreOpen) {
  beginToOpen({back(), front()});
  EXPECT_EQ(color("device"), "red");
  EXPECT_EQ(writerOf("device"), ::getpid());
  EXPECT_EQ(openPaths(), std::set{path("device")});
  openGate();
  EXPECT_FALSE(exists("device"));
  EXPECT_EQ(color("back"), "red");
  EXPECT_EQ(color("front"), "red");
  EXPECT_EQ(openPaths(), (std::set{path("back"), path("front")}));
}

TEST_F(FeedSetOpeningTest, theOldFileStaysWhenItIsWantedAgain) {
  beginToOpen({back(), front()});
  applyNow({want("device", 1)});
  openGate();
  EXPECT_EQ(openPaths(), std::set{path("device")});
  EXPECT_EQ(color("device"), "red");
  EXPECT_FALSE(exists("back"));
  EXPECT_FALSE(exists("front"));
  EXPECT_EQ(source(1)->stops, 0);
}

TEST_F(FeedSetOpeningTest, theOldFileGoesAlsoWhenTheNewOneCannotBeOpened) {
  std::filesystem::create_directory(directory / "back");
  directory.write("back/keeps-it", "");
  beginToOpen({front()});
  applyNow({back(), front()});
  openGate();
  EXPECT_FALSE(exists("device"));
  EXPECT_EQ(openPaths(), std::set{path("front")});
  EXPECT_TRUE(feeds->hasFailedFiles());
}

TEST_F(FeedSetOpeningTest, aDeviceThatVanishesLeavesNoFile) {
  beginToOpen({back(), front()});
  applyNow({});
  openGate();
  EXPECT_TRUE(openPaths().empty());
  for (const char* name : {"device", "back", "front"}) EXPECT_FALSE(exists(name)) << name;
}

TEST_F(FeedSetOpeningTest, aDeviceThatVanishesAndComesBackHasItsFile) {
  beginToOpen({back(1)});
  applyNow({});
  applyNow({back(1)});
  openGate();
  emit(1, green);
  EXPECT_EQ(color("back"), "green");
  EXPECT_EQ(writerOf("back"), ::getpid());
  heartbeat();
  EXPECT_EQ(color("back"), "green") << "it was in its place and is not made anew";
}

TEST_F(FeedSetOpeningTest, settingsThatChangeMeanwhileCount) {
  beginToOpen({back(2)});
  auto changed = back(3);
  changed.sceneMode = LLSceneModeFill;
  changed.style.android = true;
  applyNow({changed});
  openGate();
  EXPECT_TRUE(FeedReader::info(path("back"))->fill);
  emit(3, green);
  const auto picture = FeedReader::image(path("back"));
  EXPECT_EQ(picture->size(), (Size{1280, 960}));
  EXPECT_GT(picture->view().row(480)[640 * 4 + 1], 100);
  EXPECT_EQ(source(2)->starts, 0) << "nobody wants it any more";
}

TEST_F(FeedSetOpeningTest, aPictureThatComesMeanwhileIsShown) {
  beginToOpen({back(1)});
  source(1)->emit(plainPicture({16, 8}, green));
  openGate();
  EXPECT_EQ(color("back"), "green");
}

TEST_F(FeedSetOpeningTest, closingLeavesNoWriter) {
  beginToOpen({back(), front()});
  auto results = queue->sync([&] { return feeds->close(); });
  EXPECT_EQ(writerOf("device"), 0) << "it was open";
  gate->set(true);
  for (auto& result : results) result.wait();
  EXPECT_EQ(writerOf("back"), 0);
  EXPECT_EQ(writerOf("front"), 0);
}

TEST_F(FeedSetOpeningTest, closingDoesNotWaitButTellsWhenNothingIsOpenedAnyMore) {
  beginToOpen({back()});
  auto results = queue->sync([&] { return feeds->close(); });
  const auto ready = [](auto& result) {
    return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  };
  EXPECT_FALSE(std::ranges::all_of(results, ready));
  gate->set(true);
  for (auto& result : results) result.wait();
}

TEST_F(FeedSetOpeningTest, whoWaitsForItToSettleIsLetGoWhenAllIsClosed) {
  beginToOpen({back()});
  auto settled = queue->sync([&] { return feeds->settled(); });
  EXPECT_EQ(settled.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  queue->sync([&] { feeds->close(); });
  EXPECT_EQ(settled.wait_for(std::chrono::seconds(0)), std::future_status::ready);
}

TEST_F(FeedSetOpeningTest, aSetThatIsGoneIsNotTold) {
  beginToOpen({back()});
  const int before = told;
  queue->sync([&] { feeds.reset(); });
  gate->set(true);
  EXPECT_TRUE(eventually([&] { return exists("back") && writerOf("back") == 0; }));
  queue->sync([] {});
  EXPECT_EQ(told, before);
  feeds = std::make_shared<FeedSet>(queue,
                                    FeedSet::Hooks{.owner = [] { return std::weak_ptr<void>(); }});
}

TEST_F(FeedSetTest, tellsOfFilesThatWereOpenedAndOfThoseThatWereNot) {
  apply({want("a", 1)});
  EXPECT_EQ(told, 1);
  apply({want("a", 1), want("no-such-directory/b", 2)});
  EXPECT_EQ(told, 2);
  EXPECT_EQ(source(2)->starts, 0) << "no source runs for a file that cannot be opened";
}

TEST_F(FeedSetTest, whatChangesQuicklyEndsAsItIsWantedLast) {
  for (int round = 0; round < 50; ++round) {
    queue->sync([&] {
      feeds->apply({want("back", 1, LLCameraBack), want("front", 2, LLCameraFront)});
      feeds->apply({want("device", 1 + round % 3)});
      if (round % 7 == 0) feeds->heartbeat();
      if (round % 5 == 0) feeds->apply({});
    });
  }
  apply({want("back", 1, LLCameraBack), want("front", 2, LLCameraFront)});
  EXPECT_FALSE(exists("device"));
  emit(1, red);
  emit(2, green);
  EXPECT_EQ(color("back"), "red");
  EXPECT_EQ(color("front"), "green");
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

  std::filesystem::path writeOverlay(const std::string& name, Size size = {16, 8}) {
    const auto png = Modules::imageCodec().encodePng(plainPicture(size, green)->view());
    return directory.write(name, {reinterpret_cast<const char*>(png.data()), png.size()});
  }

  void applyNow(const std::vector<WantedFeed>& wanted) {
    lastWanted = wanted;
    feeds->apply(wanted);
  }

  /// Takes longer than it takes a file to open and a source to start.
  static constexpr Size longToDecode{160, 120};

  static constexpr std::chrono::seconds aLongTime{60};

  /// Emits a red picture, which must not be seen. Whether the green overlay is.
  bool showsOnlyWithOverlay(const std::string& name, int number) {
    emit(number, red);
    const auto seen = middle(name);
    EXPECT_NE(seen, "red");
    return seen == "green";
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
  writeOverlay("overlay.png", longToDecode);
  queue->sync([&] { applyNow({wantOverlay("a", 1, "overlay.png")}); });
  EXPECT_TRUE(eventually([&] { return showsOnlyWithOverlay("a", 1); }, aLongTime));
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

TEST_F(FeedSetOverlayTest, oneThatCouldNotBeDecodedIsTriedAgain) {
  directory.write("overlay.png", "not a picture");
  queue->sync([&] { applyNow({wantOverlay("a", 1, "overlay.png")}); });
  emit(1, red);
  ASSERT_TRUE(eventually([&] { return middle("a") == "red"; }, aLongTime));
  writeOverlay("overlay.png");
  queue->sync([&] { feeds->retryFailures(); });
  EXPECT_TRUE(eventually([&] { return middle("a") == "green"; }, aLongTime));
}

TEST_F(FeedSetOverlayTest, aFileThatIsMadeAnewStillWaitsForIt) {
  writeOverlay("overlay.png", longToDecode);
  queue->sync([&] { applyNow({wantOverlay("a", 1, "overlay.png")}); });
  settle();
  std::filesystem::remove(directory / "a");
  heartbeat();
  EXPECT_TRUE(eventually([&] { return showsOnlyWithOverlay("a", 1); }, aLongTime));
}

}  // namespace
}  // namespace lenslark
