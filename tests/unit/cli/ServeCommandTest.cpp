#include "commands/ServeCommand.h"

#include <gtest/gtest.h>

#include "commands/Failure.h"

namespace lenslark {
namespace {

/// An import that remembers what it was asked for.
struct Imports {
  std::vector<std::pair<std::string, MediaItem::Kind>> calls;

  ServeCommand::Import function() {
    return [this](const std::string& path, MediaItem::Kind kind) {
      calls.emplace_back(path, kind);
      return MediaItem{.id = "sha256:" + path, .kind = kind};
    };
  }
};

FeedOverrides overrides(std::vector<std::string> words) {
  words.insert(words.begin(), "serve");
  Imports imports;
  return ServeCommand::overrides(Arguments(std::move(words)), imports.function());
}

std::string failure(std::vector<std::string> words) {
  try {
    overrides(std::move(words));
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no failure";
}

TEST(ServeCommandTest, withoutFlagsTheSavedSettingsStay) {
  EXPECT_EQ(overrides({}), FeedOverrides());
}

TEST(ServeCommandTest, displayNamesADisplay) {
  EXPECT_EQ(overrides({"--display", "2"}).source, SourceSpec{SourceSpec::Display{2}});
}

TEST(ServeCommandTest, displayExpectsANumber) {
  EXPECT_EQ(failure({"--display", "two"}), "--display expects a number");
}

TEST(ServeCommandTest, windowNamesAWindow) {
  EXPECT_EQ(overrides({"--window", "Maps"}).source, SourceSpec{SourceSpec::Window{"Maps"}});
}

TEST(ServeCommandTest, testPatternShowsThePattern) {
  EXPECT_EQ(overrides({"--test-pattern"}).source, SourceSpec{SourceSpec::Pattern{}});
}

TEST(ServeCommandTest, imageImportsAPicture) {
  Imports imports;
  const auto result =
      ServeCommand::overrides(Arguments({"serve", "--image", "a.png"}), imports.function());
  EXPECT_EQ(result.source, SourceSpec{SourceSpec::Image{"sha256:a.png"}});
  EXPECT_EQ(imports.calls, (std::vector{std::pair(std::string("a.png"), MediaItem::Kind::image)}));
}

TEST(ServeCommandTest, videoImportsAFilmAndLoopsIt) {
  Imports imports;
  const auto result =
      ServeCommand::overrides(Arguments({"serve", "--video", "b.mov"}), imports.function());
  EXPECT_EQ(result.source, (SourceSpec{SourceSpec::Video{"sha256:b.mov", true}}));
  EXPECT_EQ(imports.calls, (std::vector{std::pair(std::string("b.mov"), MediaItem::Kind::video)}));
}

TEST(ServeCommandTest, theFirstSourceOfTheListWins) {
  EXPECT_EQ(overrides({"--video", "b.mov", "--image", "a.png"}).source,
            SourceSpec{SourceSpec::Image{"sha256:a.png"}});
  EXPECT_EQ(overrides({"--image", "a.png", "--test-pattern"}).source,
            SourceSpec{SourceSpec::Pattern{}});
  EXPECT_EQ(overrides({"--test-pattern", "--window", "x"}).source,
            SourceSpec{SourceSpec::Window{"x"}});
  EXPECT_EQ(overrides({"--window", "x", "--display", "1"}).source,
            SourceSpec{SourceSpec::Display{1}});
}

TEST(ServeCommandTest, whatLosesIsNotImported) {
  Imports imports;
  ServeCommand::overrides(Arguments({"serve", "--test-pattern", "--image", "a.png"}),
                          imports.function());
  EXPECT_TRUE(imports.calls.empty());
}

TEST(ServeCommandTest, fpsSetsTheRate) { EXPECT_EQ(overrides({"--fps", "12"}).fps, 12); }

TEST(ServeCommandTest, takesNumbersBeyondWhatCanBe) {
  EXPECT_EQ(overrides({"--fps", "3000000000"}).fps, 3000000000);
  EXPECT_EQ(overrides({"--display", "3000000000"}).source,
            (SourceSpec{SourceSpec::Display{3000000000}}));
}

TEST(ServeCommandTest, fpsExpectsAPositiveNumber) {
  for (const char* text : {"0", "-3", "x", "", "2.5", "-99999999999"}) {
    EXPECT_EQ(failure({"--fps", text}), "--fps expects a positive number") << text;
  }
}

TEST(ServeCommandTest, aWrongNumberImportsNothing) {
  Imports imports;
  EXPECT_THROW(ServeCommand::overrides(Arguments({"serve", "--image", "a.png", "--fps", "x"}),
                                       imports.function()),
               UsageError);
  EXPECT_TRUE(imports.calls.empty());
}

TEST(ServeCommandTest, onlyFitIsFit) {
  EXPECT_EQ(overrides({"--mode", "fit"}).fill, false);
  EXPECT_EQ(overrides({"--mode", "fill"}).fill, true);
  EXPECT_EQ(overrides({"--mode", "fil"}).fill, true);
}

DeviceStatus phone() {
  DeviceStatus status;
  status.device.key = DeviceKey::ios("A");
  status.device.name = "iPhone 16 Pro";
  status.device.feed = ConnectedDevice::Simulator{"A"};
  status.device.window = DeviceWindow{DeviceWindow::IosSimulator{"A"}, "iPhone 16 Pro", 7};
  status.cameras = {{CameraPosition::back, {}, "/tmp/lenslark-sim-A.shm"},
                    {CameraPosition::front, {}, "/tmp/lenslark-sim-A.shm"}};
  return status;
}

std::string text(const std::vector<DeviceStatus>& devices) {
  return ServeCommand::statusText(devices, [](const Assignment&) { return "test pattern"; });
}

TEST(ServeCommandTest, saysThatThereIsNoDevice) {
  EXPECT_EQ(text({}), "  (no booted simulators or running emulators)");
}

TEST(ServeCommandTest, showsADeviceAndItsCamerasOnALine) {
  EXPECT_EQ(text({phone()}), "iOS iPhone 16 Pro — back: test pattern, front: test pattern");
}

TEST(ServeCommandTest, saysThatADeviceHasNoWindow) {
  auto device = phone();
  device.device.window.reset();
  EXPECT_EQ(text({device}),
            "iOS iPhone 16 Pro (no window) — back: test pattern, front: test pattern");
}

TEST(ServeCommandTest, saysThatACameraHasNoFeed) {
  auto device = phone();
  device.cameras[1].feedPath.reset();
  EXPECT_EQ(text({device}),
            "iOS iPhone 16 Pro — back: test pattern, front: test pattern [no feed]");
}

TEST(ServeCommandTest, showsEachDeviceOnALineOfItsOwn) {
  DeviceStatus emulator;
  emulator.device.key = DeviceKey::android("Pixel_8");
  emulator.device.name = "Pixel 8";
  emulator.device.feed = ConnectedDevice::Emulator{4242};
  emulator.cameras = {{CameraPosition::back, {}, "/tmp/lenslark-pid-4242.shm"}};
  EXPECT_EQ(text({phone(), emulator}),
            "iOS iPhone 16 Pro — back: test pattern, front: test pattern\n"
            "Android Pixel 8 (no window) — back: test pattern");
}

}  // namespace
}  // namespace lenslark
