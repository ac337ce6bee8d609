#include "devices/DeviceScanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <vector>

namespace lenslark {
namespace {

using namespace std::chrono_literals;
using ScanPacing::Instant;
using ScanPacing::LastAsked;

const Instant start = Instant{} + 1000s;

// Pacing

TEST(ScanPacingTest, whatWasNeverAskedIsDue) {
  EXPECT_TRUE(ScanPacing::screenIsDue({}, false, start));
  EXPECT_TRUE(ScanPacing::simulatorsAreDue({}, false, start));
  EXPECT_TRUE(ScanPacing::emulatorsAreDue({}, start));
}

TEST(ScanPacingTest, aScreenThatMayBeSeenIsAskedEveryTime) {
  const LastAsked last{.screen = start};
  EXPECT_TRUE(ScanPacing::screenIsDue(last, true, start));
  EXPECT_TRUE(ScanPacing::screenIsDue(last, std::nullopt, start));
}

TEST(ScanPacingTest, aScreenThatMayNotBeSeenIsAskedAfterTenSeconds) {
  const LastAsked last{.screen = start};
  EXPECT_FALSE(ScanPacing::screenIsDue(last, false, start + 10s));
  EXPECT_TRUE(ScanPacing::screenIsDue(last, false, start + 10s + 1ms));
}

TEST(ScanPacingTest, simulatorsAreAskedAfterFiveSeconds) {
  const LastAsked last{.simulators = start};
  EXPECT_FALSE(ScanPacing::simulatorsAreDue(last, false, start + 5s));
  EXPECT_TRUE(ScanPacing::simulatorsAreDue(last, false, start + 5s + 1ms));
}

TEST(ScanPacingTest, simulatorsAreAskedAfterOneSecondWhenOneJustBooted) {
  const LastAsked last{.simulators = start};
  EXPECT_FALSE(ScanPacing::simulatorsAreDue(last, true, start + 1s));
  EXPECT_TRUE(ScanPacing::simulatorsAreDue(last, true, start + 1s + 1ms));
}

TEST(ScanPacingTest, emulatorsAreAskedAfterThreeSeconds) {
  const LastAsked last{.emulators = start};
  EXPECT_FALSE(ScanPacing::emulatorsAreDue(last, start + 3s));
  EXPECT_TRUE(ScanPacing::emulatorsAreDue(last, start + 3s + 1ms));
}

// Scanning

/// What the scanner finds, and how often it asked.
class DeviceScannerTest : public testing::Test {
 protected:
  DeviceDiscovery discovery() {
    return {.simulators =
                [this] {
                  ++simulatorScans;
                  if (simulatorsFail) throw std::runtime_error("simctl");
                  return simulators;
                },
            .emulators =
                [this] {
                  ++emulatorScans;
                  if (emulatorsFail) throw std::runtime_error("ps");
                  return emulators;
                },
            .screenContent =
                [this] {
                  ++screenQueries;
                  return content;
                }};
  }

  bool forced(Instant now = start) { return scanner.scan(DeviceScanner::Pace::forced, now); }
  bool paced(Instant now) { return scanner.scan(DeviceScanner::Pace::paced, now); }

  static WindowInfo simulatorWindow(std::uint32_t id, const char* title) {
    return {.id = id,
            .title = title,
            .applicationName = "Simulator",
            .bundleIdentifier = "com.apple.iphonesimulator",
            .frame = {0, 0, 400, 800}};
  }

  std::vector<Simulator::Device> simulators{{"A", "iPhone", "iOS-17-2"}};
  std::vector<AndroidEmulator::Process> emulators{{"Pixel", 42}};
  std::optional<ScreenContent> content = ScreenContent{};
  bool simulatorsFail = false;
  bool emulatorsFail = false;
  int simulatorScans = 0;
  int emulatorScans = 0;
  int screenQueries = 0;
  DeviceScanner scanner{discovery()};
};

TEST_F(DeviceScannerTest, knowsNothingBeforeItsFirstScan) {
  EXPECT_TRUE(scanner.snapshot().devices.empty());
  EXPECT_FALSE(scanner.snapshot().content);
  EXPECT_EQ(scanner.snapshot().screenAccess, std::nullopt);
}

TEST_F(DeviceScannerTest, theFirstScanFindsWhatIsThere) {
  EXPECT_TRUE(forced());
  EXPECT_EQ(scanner.snapshot().devices.size(), 2U);
  EXPECT_EQ(scanner.snapshot().screenAccess, true);
  EXPECT_TRUE(scanner.snapshot().content);
}

TEST_F(DeviceScannerTest, aForcedScanAsksEverything) {
  forced();
  forced();
  EXPECT_EQ(simulatorScans, 2);
  EXPECT_EQ(emulatorScans, 2);
  EXPECT_EQ(screenQueries, 2);
}

TEST_F(DeviceScannerTest, aPacedScanKeepsWhatItDoesNotAsk) {
  forced();
  simulators.clear();
  emulators.clear();
  EXPECT_FALSE(paced(start + 1s));
  EXPECT_EQ(scanner.snapshot().devices.size(), 2U);
}

TEST_F(DeviceScannerTest, thePaceOfTwoSecondBeats) {
  forced();
  std::vector<int> atSimulators;
  std::vector<int> atEmulators;
  for (int second = 2; second <= 12; second += 2) {
    const int before = simulatorScans;
    const int emulatorsBefore = emulatorScans;
    paced(start + std::chrono::seconds(second));
    if (simulatorScans > before) atSimulators.push_back(second);
    if (emulatorScans > emulatorsBefore) atEmulators.push_back(second);
  }
  EXPECT_THAT(atSimulators, testing::ElementsAre(6, 12));
  EXPECT_THAT(atEmulators, testing::ElementsAre(4, 8, 12));
  EXPECT_EQ(screenQueries, 7);
}

TEST_F(DeviceScannerTest, aNewSimulatorWindowHastensTheScan) {
  forced();
  simulators.push_back({"B", "iPad", "iOS-17-2"});
  content->windows.push_back(simulatorWindow(7, "iPad – iOS 17.2"));
  EXPECT_FALSE(paced(start + 1s));
  EXPECT_TRUE(paced(start + 1s + 1ms));
  EXPECT_EQ(scanner.snapshot().devices.size(), 3U);
}

TEST_F(DeviceScannerTest, aWindowOfAKnownSimulatorHastensNothing) {
  content->windows.push_back(simulatorWindow(7, "iPhone – iOS 17.2"));
  forced();
  paced(start + 2s);
  EXPECT_EQ(simulatorScans, 1);
}

TEST_F(DeviceScannerTest, aToolThatFailsKeepsTheSimulatorsKnownBefore) {
  forced();
  simulatorsFail = true;
  EXPECT_FALSE(paced(start + 6s));
  EXPECT_EQ(simulatorScans, 2);
  EXPECT_EQ(scanner.snapshot().devices.size(), 2U);
}

TEST_F(DeviceScannerTest, aProcessListThatCannotBeMadeKeepsTheEmulatorsKnownBefore) {
  forced();
  emulatorsFail = true;
  EXPECT_FALSE(paced(start + 4s));
  EXPECT_EQ(emulatorScans, 2);
  EXPECT_EQ(scanner.snapshot().devices.size(), 2U);
}

TEST_F(DeviceScannerTest, aToolThatFailsIsNotAskedSooner) {
  simulatorsFail = true;
  forced();
  paced(start + 2s);
  EXPECT_EQ(simulatorScans, 1);
}

TEST_F(DeviceScannerTest, aDeviceThatWentIsNews) {
  forced();
  emulators.clear();
  EXPECT_TRUE(paced(start + 4s));
  ASSERT_EQ(scanner.snapshot().devices.size(), 1U);
  EXPECT_TRUE(scanner.snapshot().devices.front().isIOS());
}

TEST_F(DeviceScannerTest, anEmulatorStartedAnewIsNews) {
  forced();
  emulators = {{"Pixel", 43}};
  EXPECT_TRUE(paced(start + 4s));
}

TEST_F(DeviceScannerTest, aWindowOfADeviceIsNews) {
  forced();
  content->windows.push_back(simulatorWindow(7, "iPhone"));
  EXPECT_TRUE(paced(start + 2s));
  EXPECT_EQ(scanner.snapshot().devices.back().window->windowID, 7U);
}

TEST_F(DeviceScannerTest, nothingChangedIsNoNews) {
  forced();
  EXPECT_FALSE(forced(start + 60s));
}

TEST_F(DeviceScannerTest, contentThatChangesAloneIsKeptWithoutNews) {
  forced();
  content->windows.push_back({.id = 9, .title = "Notes", .applicationName = "notes"});
  EXPECT_FALSE(paced(start + 2s));
  ASSERT_EQ(scanner.snapshot().content->windows.size(), 1U);
}

TEST_F(DeviceScannerTest, aScreenThatMayNotBeSeenLeavesDevicesWithoutWindows) {
  content.reset();
  EXPECT_TRUE(forced());
  EXPECT_EQ(scanner.snapshot().screenAccess, false);
  EXPECT_FALSE(scanner.snapshot().content);
  ASSERT_EQ(scanner.snapshot().devices.size(), 2U);
  EXPECT_FALSE(scanner.snapshot().devices.front().window);
}

TEST_F(DeviceScannerTest, accessThatIsGrantedLaterIsNewsAfterTenSeconds) {
  content.reset();
  forced();
  content.emplace();
  content->windows.push_back(simulatorWindow(7, "iPhone"));
  EXPECT_FALSE(paced(start + 10s));
  EXPECT_TRUE(paced(start + 12s));
  EXPECT_EQ(scanner.snapshot().screenAccess, true);
  EXPECT_EQ(scanner.snapshot().devices.back().window->windowID, 7U);
}

TEST_F(DeviceScannerTest, accessThatIsTakenAwayIsNews) {
  content->windows.push_back(simulatorWindow(7, "iPhone"));
  forced();
  content.reset();
  EXPECT_TRUE(paced(start + 2s));
  EXPECT_FALSE(scanner.snapshot().devices.back().window);
}

TEST(DeviceDiscoveryTest, withoutAScreenThereIsNoContent) {
  EXPECT_FALSE(DeviceDiscovery::ofSystem(nullptr).screenContent());
}

}  // namespace
}  // namespace lenslark
