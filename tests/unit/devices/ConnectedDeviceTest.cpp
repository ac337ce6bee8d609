#include "devices/ConnectedDevice.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

ConnectedDevice simulator() {
  return {.key = DeviceKey::ios("ABC"),
          .name = "iPhone",
          .feed = ConnectedDevice::Simulator{"ABC"},
          .runtime = "iOS-17-2"};
}

ConnectedDevice emulator() {
  return {.key = DeviceKey::android("Pixel_8"),
          .name = "Pixel_8",
          .feed = ConnectedDevice::Emulator{4242}};
}

TEST(ConnectedDeviceTest, aSimulatorIsIOS) {
  EXPECT_TRUE(simulator().isIOS());
  EXPECT_EQ(simulator().platform(), "iOS");
}

TEST(ConnectedDeviceTest, anEmulatorIsAndroid) {
  EXPECT_FALSE(emulator().isIOS());
  EXPECT_EQ(emulator().platform(), "Android");
}

TEST(ConnectedDeviceTest, aSimulatorsFeedsAreNamedByItsUdid) {
  EXPECT_EQ(simulator().feedPath(std::nullopt), "/tmp/lenslark-sim-ABC.shm");
  EXPECT_EQ(simulator().feedPath(CameraPosition::back), "/tmp/lenslark-sim-ABC-back.shm");
  EXPECT_EQ(simulator().feedPath(CameraPosition::front), "/tmp/lenslark-sim-ABC-front.shm");
}

TEST(ConnectedDeviceTest, anEmulatorsFeedsAreNamedByItsProcess) {
  EXPECT_EQ(emulator().feedPath(std::nullopt), "/tmp/lenslark-pid-4242.shm");
  EXPECT_EQ(emulator().feedPath(CameraPosition::back), "/tmp/lenslark-pid-4242-back.shm");
}

TEST(ConnectedDeviceTest, devicesDifferByTheirWindows) {
  ConnectedDevice shown = simulator();
  shown.window = DeviceWindow{DeviceWindow::IosSimulator{"ABC"}, "iPhone", 7};
  EXPECT_NE(shown, simulator());
}

TEST(ConnectedDeviceTest, aWindowsPlatformIsThatOfItsDevice) {
  EXPECT_EQ((DeviceWindow{DeviceWindow::IosSimulator{"ABC"}, "iPhone", 7}).platform(), "iOS");
  EXPECT_EQ((DeviceWindow{DeviceWindow::AndroidEmulator{1}, "Pixel", 7}).platform(), "Android");
}

}  // namespace
}  // namespace lenslark
