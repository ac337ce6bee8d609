#include "config/ConfigFile.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

using std::chrono::days;
using std::chrono::seconds;

const DeviceKey phone = DeviceKey::ios("A");
const DeviceKey tablet = DeviceKey::ios("B");
const Date noon{seconds(1'700'000'000)};

Assignment shows(const Scope& scope, const std::string& image) {
  return {.scope = scope, .source = {SourceSpec::Image{image}}, .overlay = {}, .updatedAt = noon};
}

TEST(ConfigFileTest, startsWithTheDefaults) {
  const ConfigFile config;
  EXPECT_EQ(config.schemaVersion, 1);
  EXPECT_TRUE(config.settings.fill);
  EXPECT_EQ(config.settings.fps, 30);
  EXPECT_TRUE(config.settings.autoInjectSimulators);
  EXPECT_TRUE(config.assignments.empty());
  EXPECT_TRUE(config.knownDevices.empty());
}

TEST(ConfigFileTest, setKeepsOneEntryPerScopeAndPutsItLast) {
  ConfigFile config;
  config.set(shows(Scope::global(), "old"));
  config.set(shows(Scope::device(phone), "other"));
  config.set(shows(Scope::global(), "new"));
  EXPECT_EQ(config.assignments,
            (std::vector{shows(Scope::device(phone), "other"), shows(Scope::global(), "new")}));
}

TEST(ConfigFileTest, setTakesAnAssignmentOfItsOwn) {
  ConfigFile config;
  config.set(shows(Scope::global(), "a"));
  config.set(config.assignments.front());
  EXPECT_EQ(config.assignments, std::vector{shows(Scope::global(), "a")});
}

TEST(ConfigFileTest, resetRemovesExactlyItsScope) {
  ConfigFile config;
  const Scope camera = Scope::camera(phone, CameraPosition::back);
  config.set(shows(Scope::device(phone), "device"));
  config.set(shows(camera, "camera"));
  config.reset(Scope::device(phone));
  EXPECT_EQ(config.assignments, std::vector{shows(camera, "camera")});
}

TEST(ConfigFileTest, resetTakesTheScopeOfAStoredAssignment) {
  ConfigFile config;
  config.set(shows(Scope::device(phone), "a"));
  config.set(shows(Scope::device(tablet), "b"));
  config.reset(config.assignments.front().scope);
  EXPECT_EQ(config.assignments, std::vector{shows(Scope::device(tablet), "b")});
}

TEST(ConfigFileTest, findsTheAssignmentOfExactlyAScope) {
  ConfigFile config;
  config.set(shows(Scope::device(phone), "a"));
  ASSERT_NE(config.assignment(Scope::device(phone)), nullptr);
  EXPECT_EQ(*config.assignment(Scope::device(phone)), shows(Scope::device(phone), "a"));
  EXPECT_EQ(config.assignment(Scope::camera(phone, CameraPosition::back)), nullptr);
  EXPECT_EQ(config.assignment(Scope::global()), nullptr);
}

TEST(ConfigFileTest, theFirstOfDoubledEntriesCounts) {
  ConfigFile config;
  config.assignments = {shows(Scope::global(), "first"), shows(Scope::global(), "second")};
  EXPECT_EQ(config.global(), shows(Scope::global(), "first"));
}

TEST(ConfigFileTest, resolvesCameraThenDeviceThenGlobal) {
  ConfigFile config;
  const Scope front = Scope::camera(phone, CameraPosition::front);
  config.set(shows(front, "camera"));
  config.set(shows(Scope::global(), "global"));
  config.set(shows(Scope::device(phone), "device"));
  EXPECT_EQ(config.resolve(phone, CameraPosition::front), shows(front, "camera"));
  EXPECT_EQ(config.resolve(phone, CameraPosition::back), shows(Scope::device(phone), "device"));
  EXPECT_EQ(config.resolve(tablet, CameraPosition::front), shows(Scope::global(), "global"));
}

TEST(ConfigFileTest, resolvesToTheDesktopWhenNothingIsStored) {
  const Assignment builtIn = ConfigFile().resolve(phone, CameraPosition::back);
  EXPECT_EQ(builtIn.scope, Scope::global());
  EXPECT_EQ(builtIn.source, SourceSpec{SourceSpec::Desktop{}});
  EXPECT_EQ(builtIn.overlay, std::nullopt);
  EXPECT_EQ(builtIn.updatedAt, std::nullopt);
}

TEST(ConfigFileTest, doesNotMixUpPlatformsWithEqualIds) {
  ConfigFile config;
  config.set(shows(Scope::device(DeviceKey::android("A")), "emulator"));
  EXPECT_EQ(config.resolve(phone, CameraPosition::back), Assignment{});
}

TEST(ConfigFileTest, gathersAllMediaThatAnyAssignmentNames) {
  ConfigFile config;
  config.set(shows(Scope::global(), "a"));
  config.set({.scope = Scope::device(phone),
              .source = {SourceSpec::Slideshow{{"b", "a"}, 3}},
              .overlay = OverlaySpec{.media = "c"},
              .updatedAt = {}});
  EXPECT_EQ(config.referencedMedia(), (std::set<std::string>{"a", "b", "c"}));
}

TEST(ConfigFileTest, remembersANewDevice) {
  ConfigFile config;
  config.remember(phone, "iPhone", noon);
  EXPECT_EQ(config.knownDevices, (std::vector{KnownDevice{phone, "iPhone", noon}}));
}

TEST(ConfigFileTest, remembersNoDeviceWithoutAnId) {
  ConfigFile config;
  config.remember(DeviceKey::ios(""), "iPhone", noon);
  EXPECT_TRUE(config.knownDevices.empty());
}

TEST(ConfigFileTest, remembersTheSameDeviceOnceADay) {
  ConfigFile config;
  config.remember(phone, "iPhone", noon);
  const ConfigFile before = config;
  config.remember(phone, "iPhone", noon + days(1));
  EXPECT_EQ(config, before);
  config.remember(phone, "iPhone", noon + days(1) + seconds(1));
  EXPECT_EQ(config.knownDevices.front().lastSeen, noon + days(1) + seconds(1));
}

TEST(ConfigFileTest, remembersAChangedNameAtOnce) {
  ConfigFile config;
  config.remember(phone, "iPhone", noon);
  config.remember(phone, "My iPhone", noon + seconds(1));
  EXPECT_EQ(config.knownDevices, (std::vector{KnownDevice{phone, "My iPhone", noon + seconds(1)}}));
}

TEST(ConfigFileTest, forgetsADeviceNotSeenForLongWithItsSettings) {
  ConfigFile config;
  config.remember(phone, "iPhone", noon);
  config.remember(tablet, "iPad", noon + days(90));
  config.set(shows(Scope::global(), "global"));
  config.set(shows(Scope::device(phone), "device"));
  config.set(shows(Scope::camera(phone, CameraPosition::back), "camera"));
  config.set(shows(Scope::device(tablet), "tablet"));
  config.prune(90.0 * 86'400, noon + days(91));
  EXPECT_EQ(config.knownDevices, (std::vector{KnownDevice{tablet, "iPad", noon + days(90)}}));
  EXPECT_EQ(config.assignments, (std::vector{shows(Scope::global(), "global"),
                                             shows(Scope::device(tablet), "tablet")}));
}

TEST(ConfigFileTest, keepsADeviceSeenJustLongEnoughAgo) {
  ConfigFile config;
  config.remember(phone, "iPhone", noon);
  config.prune(86'400, noon + days(1));
  EXPECT_EQ(config.knownDevices.size(), 1U);
}

TEST(ConfigFileTest, keepsTheSettingsOfDevicesThatWereNeverSeen) {
  ConfigFile config;
  config.set(shows(Scope::device(phone), "device"));
  config.prune(0, noon);
  EXPECT_EQ(config.assignments.size(), 1U);
}

}  // namespace
}  // namespace lenslark
