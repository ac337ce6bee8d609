#include <gtest/gtest.h>

#include "commands/SharedControl.h"
#include "support/Devices.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class DeviceNamesTest : public testing::Test {
 protected:
  void remember(const DeviceKey& key, const std::string& name) {
    store_.update([&](ConfigFile& config) { config.remember(key, name, Clock::now()); });
  }

  TemporaryDirectory folder_;
  ConfigStore store_{folder_ / "support"};
  MediaLibrary media_{folder_ / "support" / "Media"};
  std::vector<ConnectedDevice> connected_;
  int listings_ = 0;
  const CameraControl control_{store_, media_, [this] {
                                 ++listings_;
                                 return connected_;
                               }};
  DeviceNames names_{control_};
};

TEST_F(DeviceNamesTest, aConnectedDeviceIsCalledAsItIsNow) {
  connected_ = {simulator("U", "New name")};
  remember(DeviceKey::ios("U"), "Old name");
  EXPECT_EQ(names_.name(DeviceKey::ios("U")), "New name");
}

TEST_F(DeviceNamesTest, aDeviceThatIsOffIsCalledAsItWasLast) {
  connected_ = {simulator("U", "iPhone")};
  remember(DeviceKey::ios("V"), "iPad");
  EXPECT_EQ(names_.name(DeviceKey::ios("V")), "iPad");
}

TEST_F(DeviceNamesTest, aDeviceThatWasNeverSeenIsCalledByItsKey) {
  connected_ = {simulator("U", "iPhone")};
  EXPECT_EQ(names_.name(DeviceKey::android("U")), "android:U");
}

TEST_F(DeviceNamesTest, theFirstOfTwoDevicesWithOneKeyGivesTheName) {
  connected_ = {simulator("U", "A"), simulator("U", "B")};
  EXPECT_EQ(names_.name(DeviceKey::ios("U")), "A");
}

TEST_F(DeviceNamesTest, theDevicesAreListedOnceAndOnlyWhenANameIsWanted) {
  EXPECT_EQ(listings_, 0);
  names_.name(DeviceKey::ios("U"));
  names_.name(DeviceKey::ios("V"));
  EXPECT_EQ(listings_, 1);
}

TEST_F(DeviceNamesTest, allNamesAreThoseOfOneMoment) {
  remember(DeviceKey::ios("U"), "before");
  EXPECT_EQ(names_.name(DeviceKey::ios("U")), "before");
  remember(DeviceKey::ios("U"), "after");
  EXPECT_EQ(names_.name(DeviceKey::ios("U")), "before");
}

}  // namespace
}  // namespace lenslark
