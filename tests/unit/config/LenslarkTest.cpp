#include "config/Lenslark.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/ScopedVariable.h"

namespace lenslark {
namespace {

TEST(LenslarkTest, takesTheChosenSupportDirectoryAsItStands) {
  const ScopedVariable chosen("LENSLARK_CONFIG_DIR", "/x/y");
  EXPECT_EQ(Lenslark::supportDirectory(), "/x/y");
}

TEST(LenslarkTest, usesTheUsersDataDirectoryByDefault) {
  const ScopedVariable data("XDG_DATA_HOME", "/data");
  const ScopedVariable unset("LENSLARK_CONFIG_DIR", std::nullopt);
  EXPECT_EQ(Lenslark::supportDirectory(), "/data/Lenslark");
}

TEST(LenslarkTest, takesAnEmptyChoiceForNone) {
  const ScopedVariable data("XDG_DATA_HOME", "/data");
  const ScopedVariable empty("LENSLARK_CONFIG_DIR", "");
  EXPECT_EQ(Lenslark::supportDirectory(), "/data/Lenslark");
}

TEST(LenslarkTest, takesTheChosenFramePathEvenWhenItIsEmpty) {
  const ScopedVariable chosen("LENSLARK_SHM", "/dev/shm/x");
  EXPECT_EQ(Lenslark::sharedFramePath(), "/dev/shm/x");
  const ScopedVariable empty("LENSLARK_SHM", "");
  EXPECT_EQ(Lenslark::sharedFramePath(), "");
}

TEST(LenslarkTest, keepsTheSharedFrameUnderTmpByDefault) {
  const ScopedVariable unset("LENSLARK_SHM", std::nullopt);
  EXPECT_EQ(Lenslark::sharedFramePath(), "/tmp/lenslark.shm");
}

TEST(LenslarkTest, namesTheFeedsOfSimulators) {
  EXPECT_EQ(Lenslark::simulatorFeedPath("ABC"), "/tmp/lenslark-sim-ABC.shm");
  EXPECT_EQ(Lenslark::simulatorFeedPath("ABC", CameraPosition::back),
            "/tmp/lenslark-sim-ABC-back.shm");
  EXPECT_EQ(Lenslark::simulatorFeedPath("ABC", CameraPosition::front),
            "/tmp/lenslark-sim-ABC-front.shm");
}

TEST(LenslarkTest, namesTheFeedsOfEmulators) {
  EXPECT_EQ(Lenslark::emulatorFeedPath(4242), "/tmp/lenslark-pid-4242.shm");
  EXPECT_EQ(Lenslark::emulatorFeedPath(4242, CameraPosition::back),
            "/tmp/lenslark-pid-4242-back.shm");
  EXPECT_EQ(Lenslark::emulatorFeedPath(std::numeric_limits<pid_t>::max(), CameraPosition::front),
            "/tmp/lenslark-pid-2147483647-front.shm");
}

TEST(LenslarkTest, hasItsWellKnownNames) {
  EXPECT_EQ(Lenslark::version, "1.1.0");
  EXPECT_EQ(Lenslark::appBundleID, "dev.lenslark.Lenslark");
  EXPECT_EQ(Lenslark::virtualCameraName, "Lenslark Camera");
  EXPECT_EQ(Lenslark::virtualFrontCameraName, "Lenslark Camera (Front)");
}

}  // namespace
}  // namespace lenslark
