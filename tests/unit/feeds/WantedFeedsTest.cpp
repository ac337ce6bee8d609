#include "feeds/WantedFeeds.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

ConnectedDevice phone(const std::string& udid, std::uint32_t window = 7) {
  return {DeviceKey::ios(udid),
          "iPhone",
          ConnectedDevice::Simulator{udid},
          {},
          DeviceWindow{DeviceWindow::IosSimulator{udid}, "iPhone", window}};
}

ConnectedDevice emulator(pid_t pid) {
  return {DeviceKey::android("Pixel"),
          "Pixel",
          ConnectedDevice::Emulator{pid},
          {},
          DeviceWindow{DeviceWindow::AndroidEmulator{pid}, "Pixel", 9}};
}

class WantedFeedsTest : public testing::Test {
 protected:
  WantedFeedsTest() {
    situation.globalPath = "/tmp/global.shm";
    situation.media = {{"sha256:a", "/items/a.png"}, {"sha256:b", "/items/b.png"}};
  }

  void set(Scope scope, SourceSpec source, std::optional<OverlaySpec> overlay = {}) {
    situation.config.set({std::move(scope), std::move(source), std::move(overlay), {}});
  }

  std::vector<std::string> paths() const {
    std::vector<std::string> result;
    for (const auto& feed : wantedFeeds(situation)) result.push_back(feed.path);
    return result;
  }

  const SourceSpec imageA{SourceSpec::Image{"sha256:a"}};
  const SourceSpec imageB{SourceSpec::Image{"sha256:b"}};
  FeedSituation situation;
};

using Paths = std::vector<std::string>;

TEST_F(WantedFeedsTest, nothingIsWantedWithoutDevicesAndSettings) { EXPECT_TRUE(paths().empty()); }

TEST_F(WantedFeedsTest, theGlobalFeedShowsTheGlobalSetting) {
  set(Scope::global(), imageA);
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 1U);
  EXPECT_EQ(feeds[0].path, "/tmp/global.shm");
  EXPECT_EQ(feeds[0].camera, LLCameraDevice);
  EXPECT_EQ(feeds[0].device, std::nullopt);
  EXPECT_EQ(feeds[0].source.key, "image:/items/a.png");
  EXPECT_FALSE(feeds[0].style.android);
}

TEST_F(WantedFeedsTest, theDesktopIsNoGlobalFeed) {
  set(Scope::global(), {SourceSpec::Desktop{}});
  EXPECT_TRUE(paths().empty());
}

TEST_F(WantedFeedsTest, aSourceOverrideDecidesTheGlobalFeedToo) {
  situation.overrides.source = SourceSpec{SourceSpec::Pattern{}};
  EXPECT_EQ(paths(), Paths{"/tmp/global.shm"});
  set(Scope::global(), imageA);
  situation.overrides.source = SourceSpec{SourceSpec::Desktop{}};
  EXPECT_TRUE(paths().empty());
}

TEST_F(WantedFeedsTest, aSimulatorWhoseCamerasShowTheSameHasOneFile) {
  situation.devices = {phone("U")};
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 1U);
  EXPECT_EQ(feeds[0].path, "/tmp/lenslark-sim-U.shm");
  EXPECT_EQ(feeds[0].camera, LLCameraDevice);
  EXPECT_EQ(feeds[0].device, DeviceKey::ios("U"));
  EXPECT_EQ(feeds[0].source.key, "desktop:7:30");
  EXPECT_TRUE(feeds[0].style.desktop);
}

TEST_F(WantedFeedsTest, aSimulatorWhoseCamerasDifferHasAFileForEach) {
  situation.devices = {phone("U")};
  set(Scope::camera(DeviceKey::ios("U"), CameraPosition::front), imageA);
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 2U);
  EXPECT_EQ(feeds[0].path, "/tmp/lenslark-sim-U-back.shm");
  EXPECT_EQ(feeds[0].camera, LLCameraBack);
  EXPECT_EQ(feeds[0].source.key, "desktop:7:30");
  EXPECT_EQ(feeds[1].path, "/tmp/lenslark-sim-U-front.shm");
  EXPECT_EQ(feeds[1].camera, LLCameraFront);
  EXPECT_EQ(feeds[1].source.key, "image:/items/a.png");
}

TEST_F(WantedFeedsTest, theSameContentFromDifferentScopesIsOneFile) {
  situation.devices = {phone("U")};
  set(Scope::camera(DeviceKey::ios("U"), CameraPosition::front), imageA);
  set(Scope::device(DeviceKey::ios("U")), imageA);
  EXPECT_EQ(paths(), Paths{"/tmp/lenslark-sim-U.shm"});
}

TEST_F(WantedFeedsTest, aDifferentOverlayAloneMakesTwoFiles) {
  situation.devices = {phone("U")};
  set(Scope::device(DeviceKey::ios("U")), imageA);
  set(Scope::camera(DeviceKey::ios("U"), CameraPosition::back), imageA, OverlaySpec{"sha256:b"});
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 2U);
  EXPECT_EQ(feeds[0].source.key, feeds[1].source.key);
  EXPECT_EQ(feeds[0].overlayFile, "/items/b.png");
  EXPECT_EQ(feeds[1].overlayFile, std::nullopt);
}

TEST_F(WantedFeedsTest, anEmulatorHasOneFileFromItsBackCamera) {
  situation.devices = {emulator(4242)};
  set(Scope::camera(DeviceKey::android("Pixel"), CameraPosition::back), imageA);
  set(Scope::camera(DeviceKey::android("Pixel"), CameraPosition::front), imageB);
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 1U);
  EXPECT_EQ(feeds[0].path, "/tmp/lenslark-pid-4242.shm");
  EXPECT_EQ(feeds[0].camera, LLCameraDevice);
  EXPECT_EQ(feeds[0].source.key, "image:/items/a.png");
  EXPECT_TRUE(feeds[0].style.android);
}

TEST_F(WantedFeedsTest, aDesktopWithoutAWindowHasNoFile) {
  situation.devices = {phone("U")};
  situation.devices[0].window.reset();
  EXPECT_TRUE(paths().empty());
  set(Scope::camera(DeviceKey::ios("U"), CameraPosition::front), imageA);
  EXPECT_EQ(paths(), Paths{"/tmp/lenslark-sim-U-front.shm"});
}

TEST_F(WantedFeedsTest, camerasThatShowTheSameShareAKey) {
  situation.devices = {phone("U"), phone("V", 8)};
  set(Scope::device(DeviceKey::ios("U")), imageA);
  set(Scope::device(DeviceKey::ios("V")), imageA);
  const auto feeds = wantedFeeds(situation);
  ASSERT_EQ(feeds.size(), 2U);
  EXPECT_EQ(feeds[0].source.key, feeds[1].source.key);
}

TEST_F(WantedFeedsTest, devicesKeepTheirOrderAndTheGlobalFeedIsLast) {
  situation.devices = {phone("V"), emulator(3), phone("U")};
  set(Scope::global(), {SourceSpec::Pattern{}});
  EXPECT_EQ(paths(), (Paths{"/tmp/lenslark-sim-V.shm", "/tmp/lenslark-pid-3.shm",
                            "/tmp/lenslark-sim-U.shm", "/tmp/global.shm"}));
}

TEST_F(WantedFeedsTest, aPathIsWantedOnce) {
  situation.devices = {phone("U")};
  situation.globalPath = "/tmp/lenslark-sim-U.shm";
  set(Scope::global(), {SourceSpec::Pattern{}});
  EXPECT_EQ(paths(), Paths{"/tmp/lenslark-sim-U.shm"});
}

TEST_F(WantedFeedsTest, theOtherPathsOfConnectedDevicesAreUnwanted) {
  situation.devices = {phone("A"), phone("B", 8), emulator(42)};
  set(Scope::global(), imageA);
  set(Scope::camera(DeviceKey::ios("B"), CameraPosition::front), imageB);
  const std::set<std::string> expected{"/tmp/lenslark-sim-A-back.shm",
                                       "/tmp/lenslark-sim-A-front.shm", "/tmp/lenslark-sim-B.shm",
                                       "/tmp/lenslark-pid-42-back.shm"};
  EXPECT_EQ(unwantedPaths(situation, wantedFeeds(situation)), expected);
}

TEST_F(WantedFeedsTest, aDeviceWithoutAFeedHasUnwantedPathsAlone) {
  situation.devices = {phone("A")};
  situation.devices[0].window.reset();
  EXPECT_EQ(unwantedPaths(situation, wantedFeeds(situation)).size(), 3U);
}

TEST_F(WantedFeedsTest, fillComesFromTheOverrideThenTheSettings) {
  set(Scope::global(), imageA);
  const auto fill = [&] { return wantedFeeds(situation).at(0).style.fill; };
  EXPECT_TRUE(fill());
  situation.config.settings.fill = false;
  EXPECT_FALSE(fill());
  situation.overrides.fill = true;
  EXPECT_TRUE(fill());
}

TEST_F(WantedFeedsTest, theRateComesFromTheOverrideThenTheSettings) {
  set(Scope::global(), {SourceSpec::Pattern{}});
  const auto key = [&] { return wantedFeeds(situation).at(0).source.key; };
  EXPECT_EQ(key(), "pattern:30");
  situation.config.settings.fps = 12;
  EXPECT_EQ(key(), "pattern:12");
  situation.overrides.fps = 60;
  EXPECT_EQ(key(), "pattern:60");
}

TEST_F(WantedFeedsTest, theSceneModeFollowsTheStyleButIsFillForEmulators) {
  situation.devices = {phone("U"), emulator(3)};
  const auto modes = [&] {
    const auto feeds = wantedFeeds(situation);
    return std::pair(feeds.at(0).sceneMode, feeds.at(1).sceneMode);
  };
  EXPECT_EQ(modes(), std::pair(LLSceneMode(LLSceneModeFill), LLSceneMode(LLSceneModeFill)));
  situation.config.settings.fill = false;
  EXPECT_EQ(modes(), std::pair(LLSceneMode(LLSceneModeFit), LLSceneMode(LLSceneModeFill)));
}

TEST_F(WantedFeedsTest, anOverlayOutsideTheLibraryHasNoFile) {
  set(Scope::global(), imageA, OverlaySpec{"sha256:gone"});
  const auto feeds = wantedFeeds(situation);
  EXPECT_EQ(feeds.at(0).overlayFile, std::nullopt);
  EXPECT_EQ(feeds.at(0).style.overlay, OverlaySpec{"sha256:gone"});
}

TEST_F(WantedFeedsTest, theSourceOverrideKeepsTheOverlay) {
  set(Scope::global(), imageA, OverlaySpec{"sha256:b"});
  situation.overrides.source = SourceSpec{SourceSpec::Pattern{}};
  const auto feeds = wantedFeeds(situation);
  EXPECT_EQ(feeds.at(0).source.key, "pattern:30");
  EXPECT_EQ(feeds.at(0).overlayFile, "/items/b.png");
}

TEST_F(WantedFeedsTest, mediaThatIsMissingStillHasAFile) {
  set(Scope::global(), {SourceSpec::Image{"sha256:gone"}});
  EXPECT_EQ(paths(), Paths{"/tmp/global.shm"});
}

class DeviceStatusesTest : public WantedFeedsTest {};

TEST_F(DeviceStatusesTest, tellsEachCamerasSettingAndFile) {
  situation.devices = {phone("U")};
  set(Scope::camera(DeviceKey::ios("U"), CameraPosition::front), imageA);
  const auto statuses =
      deviceStatuses(situation, {"/tmp/lenslark-sim-U-back.shm", "/tmp/lenslark-sim-U-front.shm"});
  ASSERT_EQ(statuses.size(), 1U);
  ASSERT_EQ(statuses[0].cameras.size(), 2U);
  EXPECT_EQ(statuses[0].cameras[0].camera, CameraPosition::back);
  EXPECT_EQ(statuses[0].cameras[0].feedPath, "/tmp/lenslark-sim-U-back.shm");
  EXPECT_TRUE(statuses[0].cameras[0].assignment.source.is<SourceSpec::Desktop>());
  EXPECT_EQ(statuses[0].cameras[1].feedPath, "/tmp/lenslark-sim-U-front.shm");
  EXPECT_EQ(statuses[0].cameras[1].assignment.source, imageA);
}

TEST_F(DeviceStatusesTest, bothCamerasMayBeFedByTheDevicesFile) {
  situation.devices = {phone("U")};
  const auto statuses = deviceStatuses(situation, {"/tmp/lenslark-sim-U.shm"});
  EXPECT_EQ(statuses.at(0).cameras.at(0).feedPath, "/tmp/lenslark-sim-U.shm");
  EXPECT_EQ(statuses.at(0).cameras.at(1).feedPath, "/tmp/lenslark-sim-U.shm");
}

TEST_F(DeviceStatusesTest, aCameraWithoutAFileHasNone) {
  situation.devices = {phone("U")};
  EXPECT_EQ(deviceStatuses(situation, {}).at(0).cameras.at(0).feedPath, std::nullopt);
}

TEST_F(DeviceStatusesTest, anEmulatorHasItsBackCameraAlone) {
  situation.devices = {emulator(3)};
  const auto statuses = deviceStatuses(situation, {"/tmp/lenslark-pid-3.shm"});
  ASSERT_EQ(statuses.at(0).cameras.size(), 1U);
  EXPECT_EQ(statuses[0].cameras[0].camera, CameraPosition::back);
  EXPECT_EQ(statuses[0].cameras[0].feedPath, "/tmp/lenslark-pid-3.shm");
}

TEST_F(DeviceStatusesTest, showsTheOverrideInPlaceOfTheSetting) {
  situation.devices = {phone("U")};
  set(Scope::device(DeviceKey::ios("U")), imageA);
  situation.overrides.source = SourceSpec{SourceSpec::Pattern{}};
  const auto assignment = deviceStatuses(situation, {}).at(0).cameras.at(0).assignment;
  EXPECT_TRUE(assignment.source.is<SourceSpec::Pattern>());
  EXPECT_EQ(assignment.scope, Scope::device(DeviceKey::ios("U")));
}

}  // namespace
}  // namespace lenslark
