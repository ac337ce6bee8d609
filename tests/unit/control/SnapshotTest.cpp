#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <span>

#include "base/FileDescriptor.h"
#include "base/Uuid.h"
#include "control/CameraControl.h"
#include "lenslark/frame_file.h"
#include "support/Devices.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

/// A version 1 frame file with a picture of one colour.
std::string frameFile(Size size, double heartbeatAge) {
  const auto row = static_cast<std::uint32_t>(size.width * 4);
  std::string bytes(LL_FRAME_DATA_OFFSET + row * static_cast<std::size_t>(size.height), '\x7f');
  LLFrameHeader header = {};
  header.magic = LL_FRAME_MAGIC;
  header.version = 1;
  header.width = static_cast<std::uint32_t>(size.width);
  header.height = static_cast<std::uint32_t>(size.height);
  header.bytesPerRow = row;
  header.writerPid = static_cast<std::uint32_t>(::getpid());
  header.heartbeat =
      Clock::uptimeNanoseconds() - static_cast<std::uint64_t>(heartbeatAge * 1000000000.0);
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes;
}

class SnapshotTest : public testing::Test {
 protected:
  ~SnapshotTest() override { ::unlink(phone.feedPath(CameraPosition::back).c_str()); }

  void feed(Size size, double heartbeatAge) {
    const FileDescriptor file =
        FileDescriptor::open(phone.feedPath(CameraPosition::back), O_RDWR | O_CREAT | O_EXCL, 0600);
    const std::string bytes = frameFile(size, heartbeatAge);
    writeAll(file, std::as_bytes(std::span(bytes)), "feed");
  }

  std::string failure(const std::string& device, const std::string& code) {
    try {
      control.snapshot(device, CameraPosition::back);
      return "";
    } catch (const ControlError& error) {
      EXPECT_EQ(error.code(), code);
      return error.what();
    }
  }

  TemporaryDirectory folder;
  const ScopedVariable noGlobalFeed{"LENSLARK_SHM", folder / "none.shm"};
  const std::string udid = Uuid::make();
  const ConnectedDevice phone = simulator(udid, "iPhone");
  ConfigStore store{folder.path()};
  MediaLibrary media{folder / "Media"};
  std::vector<ConnectedDevice> connected{phone};
  CameraControl control{store, media, [this] { return connected; }};
};

TEST_F(SnapshotTest, isTheFrameAndTheDevicesName) {
  feed({8, 4}, 0);
  const auto snapshot = control.snapshot("iPhone", CameraPosition::back);
  EXPECT_EQ(snapshot.image->size(), (Size{8, 4}));
  EXPECT_EQ(snapshot.deviceName, "iPhone");
}

TEST_F(SnapshotTest, isBoundedWhenAskedFor) {
  feed({64, 32}, 0);
  EXPECT_EQ(control.snapshot(udid, CameraPosition::back, 16).image->size(), (Size{16, 8}));
}

TEST_F(SnapshotTest, aHeartbeatJustBelowThreeSecondsIsLive) {
  feed({8, 4}, 2.5);
  EXPECT_NO_THROW(control.snapshot(udid, CameraPosition::back));
}

TEST_F(SnapshotTest, aHeartbeatOfThreeSecondsIsNoLiveFeed) {
  feed({8, 4}, 3.0);
  EXPECT_EQ(failure("booted", "app_not_running"), "iPhone has no live feed; is Lenslark on?");
}

TEST_F(SnapshotTest, withoutAFeedFileThereIsNoLiveFeed) {
  EXPECT_EQ(failure("iPhone", "app_not_running"), "iPhone has no live feed; is Lenslark on?");
}

TEST_F(SnapshotTest, withoutAFrameThereIsNoLiveFeed) {
  feed({0, 0}, 0);
  EXPECT_EQ(failure("iPhone", "app_not_running"), "iPhone has no live feed; is Lenslark on?");
}

TEST_F(SnapshotTest, aDeviceThatIsOffIsNotFound) {
  EXPECT_EQ(failure("ios:OFF", "device_not_found"),
            "No device matches \"ios:OFF\". Run `lenslark devices`.");
}

TEST_F(SnapshotTest, allOfNothingIsNotFound) {
  connected.clear();
  EXPECT_EQ(failure("all", "device_not_found"),
            "No device matches \"all\". Run `lenslark devices`.");
}

}  // namespace
}  // namespace lenslark
