#include "control/ControlError.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

TEST(ControlErrorTest, badArgumentsSayTheMessageAsItStands) {
  const auto error = ControlError::badArgs("image needs a file");
  EXPECT_STREQ(error.what(), "image needs a file");
  EXPECT_EQ(error.code(), "bad_args");
  EXPECT_EQ(error.exitStatus(), 2);
  EXPECT_EQ(error.kind(), ControlError::Kind::badArgs);
}

TEST(ControlErrorTest, anUnknownDeviceIsNamedWithAdvice) {
  const auto error = ControlError::deviceNotFound("iPhone 3G");
  EXPECT_STREQ(error.what(), "No device matches \"iPhone 3G\". Run `lenslark devices`.");
  EXPECT_EQ(error.code(), "device_not_found");
  EXPECT_EQ(error.exitStatus(), 4);
}

TEST(ControlErrorTest, anAppThatDoesNotRunHasAStatusOfItsOwn) {
  const auto error = ControlError::appNotRunning("nobody is there");
  EXPECT_STREQ(error.what(), "nobody is there");
  EXPECT_EQ(error.code(), "app_not_running");
  EXPECT_EQ(error.exitStatus(), 3);
}

TEST(ControlErrorTest, anUnknownSourceIsQuotedAsTyped) {
  EXPECT_STREQ(ControlError::unknownSource("HoloGram").what(),
               "unknown source \"HoloGram\" (desktop, image, video, slideshow, pattern, display, "
               "window)");
}

TEST(ControlErrorTest, bytesThatAreNoTextAreRepaired) {
  EXPECT_STREQ(ControlError::unknownSource("\xff").what(),
               "unknown source \"\xEF\xBF\xBD\" (desktop, image, video, slideshow, pattern, "
               "display, window)");
}

}  // namespace
}  // namespace lenslark
