#include <gtest/gtest.h>

#include "platform/linux/X11PixelFormat.h"

namespace lenslark {
namespace {

TEST(PixelFormatTest, wordsOf24Or32BitsAreFilmed) {
  EXPECT_EQ((X11PixelFormat{24, 32, true}.problem()), std::nullopt);
  EXPECT_EQ((X11PixelFormat{32, 32, true}.problem()), std::nullopt);
}

TEST(PixelFormatTest, anotherDepthIsRefusedWithWhatToDo) {
  for (const int depth : {8, 15, 16, 30}) {
    const auto problem = X11PixelFormat{depth, depth > 16 ? 32 : 16, true}.problem();
    ASSERT_TRUE(problem) << depth;
    EXPECT_NE(problem->find("pixels of " + std::to_string(depth) + " bits"), std::string::npos);
    EXPECT_NE(problem->find("a colour depth of 24"), std::string::npos);
  }
}

TEST(PixelFormatTest, packedPixelsAreRefusedWithWhatToDo) {
  EXPECT_EQ((X11PixelFormat{24, 24, true}.problem()),
            "the X display stores a pixel in 24 bits, and only 32 can be filmed; start the X "
            "server with -fbbpp 32.");
}

TEST(PixelFormatTest, anotherByteOrderIsRefusedWithWhatToDo) {
  EXPECT_EQ((X11PixelFormat{24, 32, false}.problem()),
            "the X server's machine has another byte order than this one; run lenslark on the "
            "machine of the X server.");
}

TEST(PixelFormatTest, isReadFromWhatTheServerSays) {
  // A server's greeting: eight words, no vendor's name, then the pixmaps' formats.
  struct {
    xcb_setup_t setup{};
    xcb_format_t formats[2]{{8, 8, 32, {}}, {24, 32, 32, {}}};
  } greeting;
  greeting.setup.pixmap_formats_len = 2;
  greeting.setup.image_byte_order = XCB_IMAGE_ORDER_MSB_FIRST;
  xcb_screen_t screen{};
  screen.root_depth = 24;
  auto format = X11PixelFormat::of(greeting.setup, screen);
  EXPECT_EQ(format.depth, 24);
  EXPECT_EQ(format.bitsPerPixel, 32);
  const bool msbIsForeign = !format.ourByteOrder;
  greeting.setup.image_byte_order = XCB_IMAGE_ORDER_LSB_FIRST;
  format = X11PixelFormat::of(greeting.setup, screen);
  EXPECT_EQ(format.ourByteOrder, msbIsForeign);
}

}  // namespace
}  // namespace lenslark
