#include "control/DeviceSelector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control/ControlError.h"
#include "support/Devices.h"

namespace lenslark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<ConnectedDevice> someDevices{
    simulator("U1", "iPhone 15"), emulator("Pixel_8", 42), simulator("U2", "iPhone 16")};

std::vector<DeviceKey> select(std::string_view selector,
                              const std::vector<ConnectedDevice>& connected = someDevices,
                              const std::vector<KnownDevice>& known = {}) {
  return DeviceSelector::select(selector, connected, known);
}

TEST(DeviceSelectorTest, allIsEveryConnectedDeviceInOrder) {
  EXPECT_THAT(select("all"), ElementsAre(DeviceKey::ios("U1"), DeviceKey::android("Pixel_8"),
                                         DeviceKey::ios("U2")));
}

TEST(DeviceSelectorTest, allWithNothingConnectedIsNoError) {
  EXPECT_THAT(select("all", {}), IsEmpty());
}

TEST(DeviceSelectorTest, bootedIsEveryConnectedSimulator) {
  EXPECT_THAT(select("booted"), ElementsAre(DeviceKey::ios("U1"), DeviceKey::ios("U2")));
}

TEST(DeviceSelectorTest, bootedWithEmulatorsOnlyFails) {
  EXPECT_THROW(select("booted", {emulator("Pixel_8", 42)}), ControlError);
}

TEST(DeviceSelectorTest, reservedWordsCountInAnyLetterCase) {
  EXPECT_EQ(select("ALL").size(), 3U);
  EXPECT_EQ(select("Booted").size(), 2U);
}

TEST(DeviceSelectorTest, aDeviceCalledAllCannotBeSelectedByName) {
  EXPECT_THAT(select("All", {simulator("U1", "all"), simulator("U2", "other")}),
              ElementsAre(DeviceKey::ios("U1"), DeviceKey::ios("U2")));
}

TEST(DeviceSelectorTest, aKeyNamesADeviceThatIsOff) {
  EXPECT_THAT(select("ios:NOWHERE"), ElementsAre(DeviceKey::ios("NOWHERE")));
}

TEST(DeviceSelectorTest, aKeyWinsOverADeviceOfThatName) {
  EXPECT_THAT(select("android:X", {simulator("U1", "android:X")}),
              ElementsAre(DeviceKey::android("X")));
}

TEST(DeviceSelectorTest, idsMatchExactly) {
  EXPECT_THAT(select("U2"), ElementsAre(DeviceKey::ios("U2")));
  EXPECT_THROW(select("u2"), ControlError);
}

TEST(DeviceSelectorTest, namesMatchInAnyLetterCase) {
  EXPECT_THAT(select("IPHONE 15"), ElementsAre(DeviceKey::ios("U1")));
}

TEST(DeviceSelectorTest, letterCaseIsFoldedBeyondASCII) {
  EXPECT_THAT(select("GERÄT", {simulator("U1", "Gerät")}), ElementsAre(DeviceKey::ios("U1")));
}

TEST(DeviceSelectorTest, devicesOfOneNameAreAllMeant) {
  EXPECT_THAT(select("phone", {simulator("U1", "Phone"), simulator("U2", "PHONE")}),
              ElementsAre(DeviceKey::ios("U1"), DeviceKey::ios("U2")));
}

TEST(DeviceSelectorTest, rememberedDevicesComeBehindConnectedOnes) {
  const std::vector<KnownDevice> known{{DeviceKey::ios("U0"), "iPhone 15", {}}};
  EXPECT_THAT(select("iPhone 15", someDevices, known),
              ElementsAre(DeviceKey::ios("U1"), DeviceKey::ios("U0")));
}

TEST(DeviceSelectorTest, aDeviceThatIsConnectedAndRememberedIsListedOnce) {
  const std::vector<KnownDevice> known{{DeviceKey::ios("U1"), "iPhone 15", {}}};
  EXPECT_THAT(select("iPhone 15", someDevices, known), ElementsAre(DeviceKey::ios("U1")));
}

TEST(DeviceSelectorTest, anOldNameOfAConnectedDeviceStillFindsIt) {
  const std::vector<KnownDevice> known{{DeviceKey::ios("U1"), "My old phone", {}}};
  EXPECT_THAT(select("my old phone", someDevices, known), ElementsAre(DeviceKey::ios("U1")));
}

TEST(DeviceSelectorTest, whatMatchesNothingIsNamedInTheError) {
  try {
    select("Nokia");
    FAIL();
  } catch (const ControlError& error) {
    EXPECT_STREQ(error.what(), "No device matches \"Nokia\". Run `lenslark devices`.");
  }
}

TEST(DeviceSelectorTest, anEmptySelectorMatchesNothing) { EXPECT_THROW(select(""), ControlError); }

TEST(DeviceSelectorTest, partOfANameDoesNotMatch) { EXPECT_THROW(select("iPhone"), ControlError); }

}  // namespace
}  // namespace lenslark
