#include <gtest/gtest.h>

#include "platform/Screen.h"

namespace lenslark {
namespace {

TEST(CaptureErrorTest, saysWhereToFindTheDisplays) {
  EXPECT_STREQ(CaptureError::noDisplay(3).what(),
               "No display at index 3. Run `lenslark sources` to list them.");
}

TEST(CaptureErrorTest, saysWhereToFindTheWindows) {
  EXPECT_STREQ(CaptureError::noWindow("Maps").what(),
               "No on-screen window matches \"Maps\". Run `lenslark sources` to list them.");
}

TEST(CaptureErrorTest, saysWhyTheScreenCannotBeCaptured) {
  EXPECT_STREQ(CaptureError::unavailable("no display server").what(),
               "The screen cannot be captured: no display server");
}

}  // namespace
}  // namespace lenslark
