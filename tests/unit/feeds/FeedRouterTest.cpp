#include "feeds/FeedRouter.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <future>
#include <latch>
#include <system_error>

#include "base/Clock.h"
#include "base/Uuid.h"
#include "codecs/Modules.h"
#include "feeds/FeedReader.h"
#include "support/Eventually.h"
#include "support/FakeSources.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using std::chrono::milliseconds;

/// Devices as a test wants them.
class FakeDevices final : public DeviceFeed {
 public:
  struct Controls {
    void push(std::vector<ConnectedDevice> devices, std::optional<bool> access = true) {
      Handler target;
      {
        const std::lock_guard lock(mutex);
        target = handler;
      }
      if (target) target({std::move(devices), {}, access});
    }

    std::vector<ConnectedDevice> first;
    std::function<void()> onStart;
    std::atomic<int> stops = 0;

    std::mutex mutex;
    Handler handler;
  };

  explicit FakeDevices(std::shared_ptr<Controls> controls) : controls_(std::move(controls)) {}

  void start(Handler onChange) override {
    {
      const std::lock_guard lock(controls_->mutex);
      controls_->handler = std::move(onChange);
    }
    if (controls_->onStart) controls_->onStart();
    controls_->push(controls_->first);
  }
  void stop() override { ++controls_->stops; }

 private:
  std::shared_ptr<Controls> controls_;
};

/// Holds up whoever reads it, as a disk that hangs does.
class HangingPreferences final : public Preferences {
 public:
  std::optional<Value> value(const std::string&) const override {
    asked = true;
    go.wait();
    return std::nullopt;
  }

  mutable std::atomic<bool> asked = false;
  mutable std::latch go{1};
};

class FollowingSource final : public WindowFollowingSource {
 public:
  struct Controls {
    std::atomic<int> tracked = 0;
    std::atomic<bool> moves = false;
    std::atomic<bool> fails = false;
  };

  explicit FollowingSource(std::shared_ptr<Controls> controls) : controls_(std::move(controls)) {}
  ContentKind kind() const noexcept override { return ContentKind::live; }
  void start(Emit emit) override { emit(plainPicture({16, 8}, {0, 200, 0, 255})); }
  void stop() override {}
  bool track() override {
    ++controls_->tracked;
    if (controls_->fails) throw std::system_error(EAGAIN, std::generic_category(), "thread");
    return controls_->moves;
  }

 private:
  std::shared_ptr<Controls> controls_;
};

class FeedRouterTest : public testing::Test {
 protected:
  ~FeedRouterTest() override {
    if (router) router->stop();
    for (const auto& device : {simulator, emulator})
      for (const std::optional<CameraPosition> camera :
           {std::optional<CameraPosition>(), {CameraPosition::back}, {CameraPosition::front}})
        ::unlink(device.feedPath(camera).c_str());
  }

  void make(FeedOverrides overrides = {}, SourceFactory factory = {}) {
    if (!factory)
      factory = [this, system = systemSources(nullptr)](const SourceDescription& source) {
        if (std::holds_alternative<SourceDescription::Desktop>(source.value))
          return std::unique_ptr<FrameSource>(std::make_unique<FollowingSource>(window));
        return system(source);
      };
    router = std::make_shared<FeedRouter>(
        FeedRouter::Dependencies{store, media, std::make_unique<FakeDevices>(devices), factory},
        std::move(overrides));
    router->onChange([this] { ++changes; });
  }

  void start(FeedOverrides overrides = {}, SourceFactory factory = {}) {
    make(std::move(overrides), std::move(factory));
    router->start();
  }

  void set(Scope scope, SourceSpec source) {
    store->set({std::move(scope), std::move(source), {}, {}});
  }

  /// An image of the library, of one colour.
  SourceSpec image(Compositor::Color color) {
    const auto png = Modules::imageCodec().encodePng(plainPicture({16, 8}, color)->view());
    const auto file =
        directory.write("new.png", {reinterpret_cast<const char*>(png.data()), png.size()});
    return {SourceSpec::Image{media->importItem(file, false).id}};
  }

  static std::string color(const std::string& path) {
    const auto picture = FeedReader::image(path);
    if (!picture) return "none";
    const auto* pixel = picture->view().row(0);
    return pixel[2] > 100 ? "red" : pixel[1] > 100 ? "green" : "other";
  }
  bool shows(const std::string& path, const std::string& expected) const {
    return eventually([&] { return color(path) == expected; });
  }

  TemporaryDirectory directory;
  const std::string globalPath = (directory / "global.shm").string();
  ScopedVariable global{"LENSLARK_SHM", globalPath};
  const std::shared_ptr<ConfigStore> store = std::make_shared<ConfigStore>(directory / "config");
  const std::shared_ptr<MediaLibrary> media = std::make_shared<MediaLibrary>(directory / "media");

  const std::string udid = Uuid::make();
  const ConnectedDevice simulator{DeviceKey::ios(udid),
                                  "iPhone",
                                  ConnectedDevice::Simulator{udid},
                                  {},
                                  DeviceWindow{DeviceWindow::IosSimulator{udid}, "iPhone", 7}};
  // A process number that the system never gives.
  const ConnectedDevice emulator{DeviceKey::android("Pixel-" + udid),
                                 "Pixel",
                                 ConnectedDevice::Emulator{1'000'000'000 + ::getpid()},
                                 {},
                                 {}};
  const std::string deviceFile = simulator.feedPath({});
  const std::string backFile = simulator.feedPath(CameraPosition::back);
  const std::string frontFile = simulator.feedPath(CameraPosition::front);

  const Compositor::Color red{200, 0, 0, 255};
  const Compositor::Color green{0, 200, 0, 255};
  std::shared_ptr<FakeDevices::Controls> devices = std::make_shared<FakeDevices::Controls>();
  std::shared_ptr<FollowingSource::Controls> window = std::make_shared<FollowingSource::Controls>();
  std::atomic<int> changes = 0;
  std::shared_ptr<FeedRouter> router;
};

TEST_F(FeedRouterTest, feedsTheGlobalFileFromTheOverride) {
  start({.source = SourceSpec{SourceSpec::Pattern{}}});
  ASSERT_TRUE(eventually([&] { return FeedReader::image(globalPath) != nullptr; }));
  EXPECT_EQ(FeedReader::info(globalPath)->content, ContentKind::pattern);
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, ::getpid());
  EXPECT_GT(router->framesCaptured(), 0U);
}

TEST_F(FeedRouterTest, writesNoGlobalFileForTheDesktop) {
  start();
  EXPECT_FALSE(std::filesystem::exists(globalPath));
  set(Scope::global(), image(red));
  EXPECT_TRUE(shows(globalPath, "red"));
  set(Scope::global(), {SourceSpec::Desktop{}});
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(globalPath); }));
}

TEST_F(FeedRouterTest, followsTheConfigurationAndBack) {
  devices->first = {simulator};
  start();
  EXPECT_TRUE(shows(deviceFile, "green"));
  const auto front = Scope::camera(simulator.key, CameraPosition::front);
  set(front, image(red));
  EXPECT_TRUE(shows(frontFile, "red"));
  EXPECT_TRUE(shows(backFile, "green"));
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(deviceFile); }));
  store->reset(front);
  EXPECT_TRUE(shows(deviceFile, "green"));
  EXPECT_TRUE(eventually(
      [&] { return !std::filesystem::exists(frontFile) && !std::filesystem::exists(backFile); }));
}

TEST_F(FeedRouterTest, aChangeByAnotherProcessIsFollowed) {
  set(Scope::global(), image(red));
  start();
  ASSERT_TRUE(shows(globalPath, "red"));
  ConfigStore other(directory / "config");
  const auto changed = image(green);
  other.set({Scope::global(), changed, {}, {}});
  EXPECT_TRUE(shows(globalPath, "green"));
}

TEST_F(FeedRouterTest, anEmulatorHasOneFile) {
  devices->first = {emulator};
  set(Scope::camera(emulator.key, CameraPosition::back), image(red));
  start();
  const auto file = emulator.feedPath({});
  ASSERT_TRUE(eventually([&] { return FeedReader::image(file) != nullptr; }));
  const auto picture = FeedReader::image(file);
  EXPECT_EQ(picture->size(), (Size{1280, 960}));
  EXPECT_GT(picture->view().row(480)[640 * 4 + 2], 100);
  EXPECT_FALSE(std::filesystem::exists(emulator.feedPath(CameraPosition::back)));
}

TEST_F(FeedRouterTest, aDeviceThatGoesTakesItsFilesAlong) {
  devices->first = {simulator};
  start();
  ASSERT_TRUE(std::filesystem::exists(deviceFile));
  devices->push({});
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(deviceFile); }));
  EXPECT_TRUE(router->statuses().empty());
}

TEST_F(FeedRouterTest, aDeviceThatComesIsFed) {
  start();
  devices->push({simulator});
  EXPECT_TRUE(shows(deviceFile, "green"));
}

TEST_F(FeedRouterTest, tellsWhatDevicesShow) {
  devices->first = {simulator};
  start();
  const auto statuses = router->statuses();
  ASSERT_EQ(statuses.size(), 1U);
  EXPECT_EQ(statuses[0].device, simulator);
  EXPECT_EQ(statuses[0].cameras.at(1).feedPath, deviceFile);
  EXPECT_EQ(router->screenAccess(), true);
}

TEST_F(FeedRouterTest, tellsOfChangesOnly) {
  devices->first = {simulator};
  start();
  const int atStart = changes;
  EXPECT_GT(atStart, 0);
  devices->push({simulator});
  EXPECT_EQ(router->statuses().size(), 1U);
  EXPECT_EQ(changes, atStart);
  devices->push({simulator}, false);
  EXPECT_EQ(router->screenAccess(), false);
  EXPECT_EQ(changes, atStart + 1);
  devices->push({}, false);
  EXPECT_TRUE(router->statuses().empty());
  EXPECT_EQ(changes, atStart + 2);
}

TEST_F(FeedRouterTest, aDeviceIsNotToldBeforeItsFileIsOpen) {
  start();
  devices->push({simulator});
  std::vector<DeviceStatus> statuses;
  ASSERT_TRUE(eventually([&] {
    statuses = router->statuses();
    return !statuses.empty();
  }));
  EXPECT_EQ(statuses[0].cameras.at(0).feedPath, deviceFile);
  EXPECT_TRUE(std::filesystem::exists(deviceFile));
}

TEST_F(FeedRouterTest, aDeviceWhoseFileCannotBeOpenedIsToldWithoutOne) {
  start();
  std::filesystem::create_directory(deviceFile);
  const std::string keeper = deviceFile + "/keeps-it";
  std::filesystem::create_directory(keeper);
  devices->push({simulator});
  std::vector<DeviceStatus> statuses;
  ASSERT_TRUE(eventually([&] {
    statuses = router->statuses();
    return !statuses.empty();
  }));
  EXPECT_EQ(statuses[0].cameras.at(0).feedPath, std::nullopt);
  std::filesystem::remove_all(deviceFile);
  EXPECT_TRUE(shows(deviceFile, "green")) << "it is tried again";
  EXPECT_TRUE(
      eventually([&] { return router->statuses().at(0).cameras.at(0).feedPath == deviceFile; }));
}

TEST_F(FeedRouterTest, devicesThatAreThereAtTheStartAreFedWhenItReturns) {
  devices->first = {simulator};
  start();
  EXPECT_TRUE(std::filesystem::exists(deviceFile));
  ASSERT_EQ(router->statuses().size(), 1U);
  EXPECT_EQ(router->statuses()[0].cameras.at(0).feedPath, deviceFile);
}

TEST_F(FeedRouterTest, aStopRightAfterADeviceCameLeavesNoWriter) {
  start();
  devices->push({simulator, emulator});
  router->stop();
  for (const auto& file : {deviceFile, emulator.feedPath({})}) {
    if (const auto info = FeedReader::info(file)) {
      EXPECT_EQ(info->writerPid, 0) << file;
    }
  }
}

TEST_F(FeedRouterTest, keepsFilesMarkedAsAlive) {
  set(Scope::global(), image(red));
  start();
  ASSERT_TRUE(shows(globalPath, "red"));
  // A still picture is written once: what moves on is the sign of life.
  const auto lastSign = [this] {
    const auto age = FeedReader::info(globalPath)->heartbeatAge;
    return age ? Clock::uptimeSeconds() - *age : 0;
  };
  const double first = lastSign();
  EXPECT_TRUE(eventually([&] { return lastSign() > first + 0.8; }, milliseconds(30000)));
}

TEST_F(FeedRouterTest, aFileThatWasRemovedComesBack) {
  set(Scope::global(), image(red));
  start();
  ASSERT_TRUE(shows(globalPath, "red"));
  std::filesystem::remove(globalPath);
  EXPECT_TRUE(shows(globalPath, "red"));
}

TEST_F(FeedRouterTest, aFileThatCannotBeOpenedComesOnceItCan) {
  std::filesystem::create_directory(globalPath);
  directory.write("global.shm/keeps-it", "");
  set(Scope::global(), image(red));
  start();
  EXPECT_EQ(FeedReader::info(globalPath), std::nullopt);
  std::filesystem::remove_all(globalPath);
  EXPECT_TRUE(shows(globalPath, "red"));
}

TEST_F(FeedRouterTest, forgetsOldDevicesAlsoWhenNoneIsConnected) {
  store->update([&](ConfigFile& config) {
    config.remember(DeviceKey::ios("OLD"), "Old", Clock::now() - std::chrono::days(91));
  });
  start();
  EXPECT_TRUE(eventually([&] { return store->config().knownDevices.empty(); }));
}

TEST_F(FeedRouterTest, remembersDevicesAndForgetsOldOnes) {
  const auto old = DeviceKey::ios("OLD");
  const auto now = Clock::now();
  store->update([&](ConfigFile& config) {
    config.remember(old, "Old", now - std::chrono::days(91));
    config.set({Scope::device(old), {SourceSpec::Pattern{}}, {}, {}});
  });
  devices->first = {simulator};
  start();
  EXPECT_TRUE(eventually([&] {
    const auto known = store->config().knownDevices;
    return known.size() == 1 && known[0].key == simulator.key && known[0].name == "iPhone";
  }));
  EXPECT_EQ(store->config().assignment(Scope::device(old)), nullptr);
}

TEST_F(FeedRouterTest, aConfigurationThatCannotBeWrittenDoesNotStopTheCameras) {
  std::filesystem::create_directory(directory / "config");
  std::filesystem::permissions(directory / "config", std::filesystem::perms::owner_read |
                                                         std::filesystem::perms::owner_exec);
  devices->first = {simulator};
  start();
  EXPECT_TRUE(shows(deviceFile, "green"));
  std::filesystem::permissions(directory / "config", std::filesystem::perms::owner_all);
}

TEST_F(FeedRouterTest, mediaThatIsShownCountsAsUsed) {
  const auto shown = image(red);
  const auto id = shown.mediaIDs().at(0);
  media->touch({id}, Clock::now() - std::chrono::days(20));
  set(Scope::global(), shown);
  start();
  EXPECT_TRUE(eventually(
      [&] { return media->item(id)->lastUsedAt > Clock::now() - std::chrono::minutes(1); }));
}

TEST_F(FeedRouterTest, takesGarbageAwayButNothingThatIsShown) {
  const auto overridden = image(red);
  const auto configured = image(green);
  const auto unused = image({200, 200, 0, 255});
  set(Scope::global(), configured);
  const auto longAgo = Clock::now() - std::chrono::days(31);
  for (const auto& source : {overridden, configured, unused})
    media->touch({source.mediaIDs().at(0)}, longAgo);
  start({.source = overridden});
  EXPECT_TRUE(eventually([&] { return !media->item(unused.mediaIDs().at(0)); }));
  EXPECT_TRUE(media->item(overridden.mediaIDs().at(0)));
  EXPECT_TRUE(media->item(configured.mediaIDs().at(0)));
}

TEST_F(FeedRouterTest, makesNoSettingsOnlyBecauseItRuns) {
  const auto unused = image(red);
  media->touch({unused.mediaIDs().at(0)}, Clock::now() - std::chrono::days(31));
  start({.source = SourceSpec{SourceSpec::Pattern{}}});
  EXPECT_TRUE(eventually([&] { return !media->item(unused.mediaIDs().at(0)); }));
  router->stop();
  EXPECT_FALSE(std::filesystem::exists(store->fileURL()));
}

TEST_F(FeedRouterTest, keepsTheLibraryWhenTheConfigurationCannotBeRead) {
  if (::getuid() == 0) GTEST_SKIP() << "root reads everything";
  const auto shown = image(red);
  set(Scope::global(), shown);
  media->touch({shown.mediaIDs().at(0)}, Clock::now() - std::chrono::days(31));
  std::filesystem::permissions(store->fileURL(), std::filesystem::perms::none);
  start();
  router->stop();
  EXPECT_TRUE(media->item(shown.mediaIDs().at(0)));
}

TEST_F(FeedRouterTest, keepsTheLibraryWhileSettingsThatDidNotDecodeMayBeMended) {
  const auto shown = image(red);
  const auto id = shown.mediaIDs().at(0);
  set(Scope::global(), shown);
  media->touch({id}, Clock::now() - std::chrono::days(31));
  directory.write("config/config.json", "{\"a comma\": \"is missing\" 1}");
  start();
  // A device that is noted replaces the broken file: its copy is what is left of it.
  devices->push({simulator});
  ASSERT_TRUE(eventually([&] { return store->config().knownDevices.size() == 1; }));
  router->stop();
  EXPECT_TRUE(media->item(id));

  start();
  devices->push({emulator});
  ASSERT_TRUE(eventually([&] { return store->config().knownDevices.size() == 2; }));
  EXPECT_TRUE(media->item(id));
}

TEST_F(FeedRouterTest, mediaThatIsMissingIsAnErrorUntilItComes) {
  const auto source = image(red);
  const auto file = (directory / "new.png").string();
  media->remove(source.mediaIDs().at(0));
  set(Scope::global(), source);
  start();
  ASSERT_TRUE(eventually([&] { return !router->sourceErrors().empty(); }));
  EXPECT_NE(router->sourceErrors()[0].find(source.mediaIDs().at(0)), std::string::npos);
  media->importItem(file, false);
  EXPECT_TRUE(shows(globalPath, "red"));
  EXPECT_TRUE(router->sourceErrors().empty());
}

TEST_F(FeedRouterTest, anIndexCannotLeadOutOfTheLibrary) {
  const auto source = image(red);
  const auto item = *media->item(source.mediaIDs().at(0));
  std::filesystem::copy_file(media->url(item), directory / "outside.png");
  auto index = readFile((directory / "media/index.json").string());
  index.replace(index.find(item.file), item.file.size(), "../../outside.png");
  directory.write("media/index.json", index);
  set(Scope::global(), source);
  start();
  EXPECT_TRUE(eventually([&] { return !router->sourceErrors().empty(); }));
  EXPECT_EQ(color(globalPath), "none");
}

TEST_F(FeedRouterTest, aStoredItemThatIsALinkIsNotFollowed) {
  const auto source = image(red);
  const auto file = media->url(*media->item(source.mediaIDs().at(0)));
  std::filesystem::rename(file, directory / "outside.png");
  std::filesystem::create_symlink(directory / "outside.png", file);
  set(Scope::global(), source);
  start();
  EXPECT_TRUE(eventually([&] { return !router->sourceErrors().empty(); }));
  EXPECT_EQ(color(globalPath), "none");
}

TEST_F(FeedRouterTest, capturesWithoutAScreenFailInWords) {
  start({.source = SourceSpec{SourceSpec::Display{}}});
  ASSERT_TRUE(eventually([&] { return !router->sourceErrors().empty(); }));
  EXPECT_NE(router->sourceErrors()[0].find("screen capture is not available"), std::string::npos);
}

TEST_F(FeedRouterTest, stopClosesFilesAndLeavesThemThere) {
  devices->first = {simulator};
  set(Scope::global(), image(red));
  start();
  ASSERT_TRUE(shows(globalPath, "red"));
  router->stop();
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, 0);
  EXPECT_EQ(FeedReader::info(deviceFile)->writerPid, 0);
  EXPECT_EQ(devices->stops, 1);
  EXPECT_EQ(router->framesCaptured(), 0U);
}

TEST_F(FeedRouterTest, nothingHappensAfterStop) {
  start();
  router->stop();
  devices->push({simulator});
  set(Scope::global(), {SourceSpec::Pattern{}});
  std::this_thread::sleep_for(milliseconds(200));
  EXPECT_FALSE(std::filesystem::exists(deviceFile));
  EXPECT_FALSE(std::filesystem::exists(globalPath));
}

TEST_F(FeedRouterTest, stopDoesNotWaitForASourceThatHangs) {
  const auto go = std::make_shared<std::latch>(1);
  const auto hanging = std::make_shared<ManualSource::Controls>();
  hanging->onStop = [go] { go->wait(); };
  start({.source = SourceSpec{SourceSpec::Pattern{}}},
        [&](const SourceDescription&) { return std::make_unique<ManualSource>(hanging); });
  ASSERT_TRUE(eventually([&] { return hanging->running(); }));
  router->stop();
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, 0);
  go->count_down();
  EXPECT_TRUE(eventually([&] { return hanging->stops == 1; }));
}

TEST_F(FeedRouterTest, stopDoesNotWaitForAStoreThatHangs) {
  const auto disk = std::make_shared<HangingPreferences>();
  const auto hanging = std::make_shared<ConfigStore>(directory / "config", disk);
  set(Scope::global(), {SourceSpec::Pattern{}});
  router = std::make_shared<FeedRouter>(
      FeedRouter::Dependencies{hanging, media, std::make_unique<FakeDevices>(devices),
                               systemSources(nullptr)},
      FeedOverrides{});
  router->start();
  std::filesystem::remove(directory / "config" / "config.json");
  ASSERT_TRUE(eventually([&] { return disk->asked.load(); }));
  auto stopped = std::async(std::launch::async, [&] { router->stop(); });
  EXPECT_EQ(stopped.wait_for(std::chrono::seconds(15)), std::future_status::ready);
  disk->go.count_down();
}

TEST_F(FeedRouterTest, aSearchForDevicesThatHangsHoldsUpNothingElse) {
  const auto go = std::make_shared<std::latch>(1);
  devices->onStart = [go] { go->wait(); };
  make({.source = SourceSpec{SourceSpec::Pattern{}}});
  std::jthread starter([&] { router->start(); });
  EXPECT_TRUE(eventually([&] { return FeedReader::image(globalPath) != nullptr; }));
  router->stop();
  starter.join();
  go->count_down();
  EXPECT_TRUE(eventually([&] { return devices->stops == 1; }));
}

TEST_F(FeedRouterTest, looksAfterWindowsWhileSomethingFollowsOne) {
  devices->first = {simulator};
  start();
  EXPECT_TRUE(eventually([&] { return window->tracked >= 2; }));
  devices->push({});
  ASSERT_TRUE(eventually([&] { return router->statuses().empty(); }));
  // A look that is under way ends later; none is due in more than a period.
  EXPECT_TRUE(eventually([&] {
    const int tracked = window->tracked;
    std::this_thread::sleep_for(milliseconds(600));
    return window->tracked == tracked;
  }));
}

TEST_F(FeedRouterTest, looksMoreOftenWhileAWindowMoves) {
  devices->first = {simulator};
  window->moves = true;
  start();
  // At rest these would take ten seconds, on however quick a machine.
  EXPECT_TRUE(eventually([&] { return window->tracked > 40; }, milliseconds(9000)));
}

TEST_F(FeedRouterTest, looksAfterWindowsAgainWhenALookHasFailed) {
  devices->first = {simulator};
  window->fails = true;
  start();
  ASSERT_TRUE(eventually([&] { return window->tracked >= 1; }));
  window->fails = false;
  const int tracked = window->tracked;
  EXPECT_TRUE(eventually([&] { return window->tracked > tracked + 1; }));
}

TEST(FeedRouterTrackingTest, intervalDependsOnTheLastMove) {
  EXPECT_EQ(FeedRouter::trackInterval(false, 100, 100), 0);
  EXPECT_EQ(FeedRouter::trackInterval(true, 100, 100), 1.0 / 30);
  EXPECT_EQ(FeedRouter::trackInterval(true, 100.999, 100), 1.0 / 30);
  EXPECT_EQ(FeedRouter::trackInterval(true, 101, 100), 0.25);
  EXPECT_EQ(FeedRouter::trackInterval(true, 5000, 100), 0.25);
}

TEST_F(FeedRouterTest, aReleasedRouterReactsNoMore) {
  devices->first = {simulator};
  start();
  ASSERT_TRUE(shows(deviceFile, "green"));
  const std::weak_ptr<FeedRouter> watch = router;
  router.reset();
  EXPECT_TRUE(eventually([&] { return watch.expired(); }));
  EXPECT_TRUE(eventually([&] { return FeedReader::info(deviceFile)->writerPid == 0; }));
  devices->push({});
  set(Scope::global(), {SourceSpec::Pattern{}});
  EXPECT_TRUE(eventually([&] { return devices->stops == 1; }));
}

TEST_F(FeedRouterTest, manyDevicesAreKeptQuickly) {
  std::vector<ConnectedDevice> many;
  for (int i = 0; i < 8; ++i) {
    const auto id = udid + "-" + std::to_string(i);
    many.push_back({DeviceKey::ios(id), "iPhone", ConnectedDevice::Simulator{id}, {}, {}});
  }
  set(Scope::global(), image(red));
  devices->first = many;
  start();
  for (const auto& device : many) EXPECT_TRUE(shows(device.feedPath({}), "red"));
  EXPECT_EQ(router->framesCaptured(), 1U) << "one source for all";
  devices->push({});
  for (const auto& device : many)
    EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(device.feedPath({})); }));
}

}  // namespace
}  // namespace lenslark
