#include "devices/DeviceMerge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace lenslark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* simulatorBundle = "com.apple.iphonesimulator";

WindowInfo simulatorWindow(std::uint32_t id, std::string title) {
  return {.id = id,
          .title = std::move(title),
          .applicationName = "Simulator",
          .bundleIdentifier = simulatorBundle,
          .pid = 500,
          .frame = {10, 20, 400, 800}};
}

WindowInfo emulatorWindow(std::uint32_t id, pid_t pid, std::string title) {
  return {.id = id,
          .title = std::move(title),
          .applicationName = "qemu-system-x86_64",
          .pid = pid,
          .frame = {10, 20, 400, 800}};
}

ScreenContent showing(std::vector<WindowInfo> windows) { return {.windows = std::move(windows)}; }

/// The window of the device of that key, 0 when it has none.
std::uint32_t windowOf(const std::vector<ConnectedDevice>& devices, const std::string& key) {
  for (const ConnectedDevice& device : devices) {
    if (device.key.description() == key) return device.window ? device.window->windowID : 0;
  }
  ADD_FAILURE() << "no device " << key;
  return 0;
}

std::vector<std::string> keys(const std::vector<ConnectedDevice>& devices) {
  std::vector<std::string> texts;
  for (const ConnectedDevice& device : devices) texts.push_back(device.key.description());
  return texts;
}

const std::vector<Simulator::Device> phones{{"A", "iPhone 15", "iOS-17-2"},
                                            {"B", "iPhone 15 Pro", "iOS-17-2"}};

// Devices

TEST(DeviceMergeTest, aSimulatorBecomesADevice) {
  const ConnectedDevice expected{.key = DeviceKey::ios("A"),
                                 .name = "iPhone",
                                 .feed = ConnectedDevice::Simulator{"A"},
                                 .runtime = "iOS-17-2"};
  EXPECT_THAT(DeviceMerge::merge({{"A", "iPhone", "iOS-17-2"}}, {}, std::nullopt),
              ElementsAre(expected));
}

TEST(DeviceMergeTest, anEmulatorBecomesADevice) {
  const ConnectedDevice expected{
      .key = DeviceKey::android("Pixel"), .name = "Pixel", .feed = ConnectedDevice::Emulator{42}};
  EXPECT_THAT(DeviceMerge::merge({}, {{"Pixel", 42}}, std::nullopt), ElementsAre(expected));
}

TEST(DeviceMergeTest, devicesAreSortedByName) {
  EXPECT_THAT(keys(DeviceMerge::merge({{"1", "iPhone", "r"}, {"2", "Apple TV", "r"}},
                                      {{"Pixel", 42}, {"iPhone 2", 43}}, std::nullopt)),
              ElementsAre("ios:2", "android:Pixel", "ios:1", "android:iPhone 2"));
}

TEST(DeviceMergeTest, devicesOfOneNameAreSortedByKey) {
  EXPECT_THAT(keys(DeviceMerge::merge({{"B", "Same", "r"}, {"A", "Same", "r"}}, {{"Same", 1}},
                                      std::nullopt)),
              ElementsAre("android:Same", "ios:A", "ios:B"));
}

// Windows of simulators

TEST(DeviceMergeTest, aWindowGoesToTheLongestNameThatItsTitleBeginsWith) {
  const auto devices =
      DeviceMerge::merge(phones, {}, showing({simulatorWindow(7, "iPhone 15 Pro – iOS 17.2")}));
  EXPECT_EQ(windowOf(devices, "ios:B"), 7U);
  EXPECT_EQ(windowOf(devices, "ios:A"), 0U);
}

TEST(DeviceMergeTest, aWindowGoesToTheExactName) {
  const auto devices = DeviceMerge::merge(phones, {}, showing({simulatorWindow(7, "iPhone 15")}));
  EXPECT_EQ(windowOf(devices, "ios:A"), 7U);
  EXPECT_EQ(windowOf(devices, "ios:B"), 0U);
}

TEST(DeviceMergeTest, aWindowNamesItsDevice) {
  const auto devices =
      DeviceMerge::merge(phones, {}, showing({simulatorWindow(7, "iPhone 15 – iOS 17.2")}));
  const DeviceWindow expected{DeviceWindow::IosSimulator{"A"}, "iPhone 15", 7};
  EXPECT_EQ(devices.front().window, expected);
}

TEST(DeviceMergeTest, aDeviceKeepsItsFirstWindow) {
  const auto devices = DeviceMerge::merge(
      {{"A", "iPhone 15", "r"}}, {},
      showing({simulatorWindow(7, "iPhone 15"), simulatorWindow(8, "iPhone 15")}));
  EXPECT_EQ(windowOf(devices, "ios:A"), 7U);
}

TEST(DeviceMergeTest, twoDevicesOfOneNameGetAWindowEach) {
  const auto devices =
      DeviceMerge::merge({{"A", "iPhone", "r"}, {"B", "iPhone", "r"}}, {},
                         showing({simulatorWindow(7, "iPhone"), simulatorWindow(8, "iPhone")}));
  EXPECT_EQ(windowOf(devices, "ios:A"), 7U);
  EXPECT_EQ(windowOf(devices, "ios:B"), 8U);
}

TEST(DeviceMergeTest, aWindowOfNobodyIsIgnored) {
  const auto devices = DeviceMerge::merge(phones, {}, showing({simulatorWindow(7, "iPad")}));
  EXPECT_EQ(windowOf(devices, "ios:A"), 0U);
  EXPECT_EQ(windowOf(devices, "ios:B"), 0U);
}

TEST(DeviceMergeTest, aWindowWithoutTitleIsNobodys) {
  const auto devices = DeviceMerge::merge(phones, {}, showing({simulatorWindow(7, "")}));
  EXPECT_EQ(windowOf(devices, "ios:A"), 0U);
}

TEST(DeviceMergeTest, aSimulatorWindowNeverGoesToAnEmulator) {
  const auto devices =
      DeviceMerge::merge({}, {{"iPhone", 500}}, showing({simulatorWindow(7, "iPhone")}));
  EXPECT_EQ(windowOf(devices, "android:iPhone"), 0U);
}

// Windows of emulators

TEST(DeviceMergeTest, anEmulatorGetsTheWindowOfItsProcess) {
  const auto devices =
      DeviceMerge::merge({}, {{"Pixel", 42}, {"Tablet", 43}},
                         showing({emulatorWindow(9, 43, "Android Emulator - Tablet:5556")}));
  const DeviceWindow expected{DeviceWindow::AndroidEmulator{43}, "Tablet", 9};
  EXPECT_EQ(devices.back().window, expected);
  EXPECT_EQ(windowOf(devices, "android:Pixel"), 0U);
}

TEST(DeviceMergeTest, anEmulatorsOtherWindowsAreIgnored) {
  const auto devices =
      DeviceMerge::merge({}, {{"Pixel", 42}},
                         showing({emulatorWindow(8, 42, "Extended Controls"),
                                  emulatorWindow(9, 42, "Android Emulator - Pixel:5554")}));
  EXPECT_EQ(windowOf(devices, "android:Pixel"), 9U);
}

TEST(DeviceMergeTest, anEmulatorKeepsItsFirstWindow) {
  const auto devices = DeviceMerge::merge({}, {{"Pixel", 42}},
                                          showing({emulatorWindow(8, 42, "Android Emulator"),
                                                   emulatorWindow(9, 42, "Android Emulator")}));
  EXPECT_EQ(windowOf(devices, "android:Pixel"), 8U);
}

TEST(DeviceMergeTest, withoutContentNoDeviceHasAWindow) {
  const auto devices = DeviceMerge::merge(phones, {{"Pixel", 42}}, std::nullopt);
  ASSERT_EQ(devices.size(), 3U);
  for (const ConnectedDevice& device : devices) EXPECT_FALSE(device.window);
}

// Which windows count

TEST(DeviceMergeTest, windowsOfOtherApplicationsAreNoDeviceWindows) {
  WindowInfo other = emulatorWindow(1, 42, "Android Emulator - Pixel");
  other.applicationName = "firefox";
  EXPECT_THAT(DeviceMerge::deviceWindows(showing({other})), IsEmpty());
}

TEST(DeviceMergeTest, panelsAreNoDeviceWindows) {
  WindowInfo panel = simulatorWindow(1, "iPhone");
  panel.layer = 3;
  EXPECT_THAT(DeviceMerge::deviceWindows(showing({panel})), IsEmpty());
}

TEST(DeviceMergeTest, hiddenWindowsAreNoDeviceWindows) {
  WindowInfo hidden = simulatorWindow(1, "iPhone");
  hidden.onScreen = false;
  EXPECT_THAT(DeviceMerge::deviceWindows(showing({hidden})), IsEmpty());
}

TEST(DeviceMergeTest, deviceWindowsAreMoreThanAHundredWideAndHigh) {
  WindowInfo narrow = simulatorWindow(1, "iPhone");
  narrow.frame.width = 100;
  WindowInfo flat = simulatorWindow(2, "iPhone");
  flat.frame.height = 100;
  WindowInfo enough = simulatorWindow(3, "iPhone");
  enough.frame = {0, 0, 100.5, 100.5};
  EXPECT_THAT(DeviceMerge::deviceWindows(showing({narrow, flat, enough})), ElementsAre(enough));
}

TEST(DeviceMergeTest, deviceWindowsKeepTheirOrder) {
  const auto first = emulatorWindow(2, 42, "x");
  const auto second = simulatorWindow(1, "y");
  EXPECT_THAT(DeviceMerge::deviceWindows(showing({first, second})), ElementsAre(first, second));
}

TEST(DeviceMergeTest, noContentHasNoDeviceWindows) {
  EXPECT_THAT(DeviceMerge::deviceWindows(std::nullopt), IsEmpty());
}

TEST(DeviceMergeTest, simulatorTitlesAreThoseOfTheSimulatorAlone) {
  EXPECT_THAT(DeviceMerge::simulatorWindowTitles(
                  showing({simulatorWindow(1, "iPhone"), emulatorWindow(2, 42, "Android Emulator"),
                           simulatorWindow(3, ""), simulatorWindow(4, "iPad")})),
              ElementsAre("iPhone", "iPad"));
}

// Simulators that just booted

TEST(DeviceMergeTest, aTitleThatBeginsWithNoKnownNameIsUnknown) {
  EXPECT_TRUE(DeviceMerge::hasUnknownSimulator(showing({simulatorWindow(1, "iPad")}), phones));
  EXPECT_TRUE(DeviceMerge::hasUnknownSimulator(showing({simulatorWindow(1, "iPad")}), {}));
}

TEST(DeviceMergeTest, aTitleThatBeginsWithAKnownNameIsKnown) {
  EXPECT_FALSE(DeviceMerge::hasUnknownSimulator(
      showing({simulatorWindow(1, "iPhone 15 – iOS 17.2")}), phones));
}

TEST(DeviceMergeTest, withoutWindowsNoSimulatorIsUnknown) {
  EXPECT_FALSE(DeviceMerge::hasUnknownSimulator(std::nullopt, {}));
  EXPECT_FALSE(
      DeviceMerge::hasUnknownSimulator(showing({emulatorWindow(1, 42, "Android Emulator")}), {}));
}

}  // namespace
}  // namespace lenslark
