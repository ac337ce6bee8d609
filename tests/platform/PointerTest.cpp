#include <gtest/gtest.h>
#include <xcb/render.h>

#include <cstdlib>
#include <thread>

#include "platform/Film.h"
#include "platform/linux/X11Stream.h"
#include "support/XPainter.h"
#include "support/XvfbServer.h"

/// The pointer in pictures: 16 x 16 pixels here, of which the one at (3, 5) is the tip.
namespace lenslark {
namespace {

using namespace std::chrono_literals;

constexpr int side = 16;
constexpr int tipX = 3;
constexpr int tipY = 5;

class PointerTest : public testing::Test {
 protected:
  PointerTest() { painter.paintRoot(grey); }

  /// A pointer of one colour, premultiplied with its alpha: 0xAARRGGBB.
  void usePointer(std::uint32_t colour) {
    const xcb_pixmap_t pixmap = xcb_generate_id(x);
    xcb_create_pixmap(x, 32, pixmap, painter.root(), side, side);
    const xcb_gcontext_t gc = xcb_generate_id(x);
    xcb_create_gc(x, gc, pixmap, XCB_GC_FOREGROUND, &colour);
    const xcb_rectangle_t all{0, 0, side, side};
    xcb_poly_fill_rectangle(x, pixmap, gc, 1, &all);
    const xcb_render_picture_t picture = xcb_generate_id(x);
    xcb_render_create_picture(x, picture, pixmap, alphaFormat(), 0, nullptr);
    const xcb_cursor_t cursor = xcb_generate_id(x);
    xcb_render_create_cursor(x, cursor, picture, tipX, tipY);
    xcb_change_window_attributes(x, painter.root(), XCB_CW_CURSOR, &cursor);
    painter.sync();
  }

  std::unique_ptr<ScreenStream> film(Film& film, const PixelRect& area, Size output,
                                     std::vector<std::uint32_t> excluded = {},
                                     bool pointer = true) {
    return startX11Stream(
        [&](const X11Connection& connection) {
          return makeAreaScene(connection, area, {{}, {}, excluded});
        },
        {output, 30, pointer}, film.onFrame(), film.onStop());
  }

  XvfbServer server;
  XPainter painter;
  xcb_connection_t* const x = painter.get();

 private:
  xcb_render_pictformat_t alphaFormat() const {
    auto* formats =
        xcb_render_query_pict_formats_reply(x, xcb_render_query_pict_formats(x), nullptr);
    xcb_render_pictformat_t found = XCB_NONE;
    auto each = xcb_render_query_pict_formats_formats_iterator(formats);
    for (; each.rem > 0; xcb_render_pictforminfo_next(&each)) {
      const auto& format = *each.data;
      if (format.depth == 32 && format.direct.alpha_mask == 0xFF &&
          format.direct.alpha_shift == 24 && format.direct.red_shift == 16) {
        found = format.id;
      }
    }
    std::free(formats);
    return found;
  }
};

TEST_F(PointerTest, liesWithItsTipAtItsPlace) {
  usePointer(0xFF0000FF);
  painter.movePointer(150, 120);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  ASSERT_TRUE(film.shows(50, 20, blue));
  const FramePtr frame = film.last();
  EXPECT_EQ(colourAt(*frame, 50 - tipX, 20 - tipY), blue);
  EXPECT_EQ(colourAt(*frame, 50 - tipX - 1, 20), grey);
  EXPECT_EQ(colourAt(*frame, 50, 20 - tipY - 1), grey);
  EXPECT_EQ(colourAt(*frame, 50 - tipX + side - 1, 20 - tipY + side - 1), blue);
  EXPECT_EQ(colourAt(*frame, 50 - tipX + side, 20), grey);
  EXPECT_EQ(colourAt(*frame, 50, 20 - tipY + side), grey);
}

TEST_F(PointerTest, isScaledAsThePicture) {
  usePointer(0xFF0000FF);
  painter.movePointer(100 + 2 * tipX, 100 + 2 * tipY);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {100, 75});
  // From (103, 105) on: at half of 3 and 5, rounded.
  ASSERT_TRUE(film.shows(6, 7, blue));
  EXPECT_EQ(colourAt(*film.last(), 2, 3), blue);
  EXPECT_EQ(colourAt(*film.last(), 9, 10), blue);
  EXPECT_NE(colourAt(*film.last(), 10, 7), blue);
  EXPECT_NE(colourAt(*film.last(), 6, 11), blue);
}

TEST_F(PointerTest, isBlendedByItsAlpha) {
  usePointer(0x80000080);
  painter.window({0, 0, 400, 300}, green);
  painter.movePointer(150, 120);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  ASSERT_TRUE(film.shows(10, 10, green));
  EXPECT_TRUE(eventually([&] {
    const std::uint32_t colour = colourAt(*film.last(), 50, 20);
    return std::abs(static_cast<int>(colour & 0xFF) - 0x80) <= 1 &&
           std::abs(static_cast<int>(colour >> 8 & 0xFF) - 0x7F) <= 1;
  }));
}

TEST_F(PointerTest, isShownOverAnExcludedWindow) {
  usePointer(0xFF0000FF);
  const auto device = painter.window({100, 100, 200, 150}, red);
  painter.movePointer(150, 120);
  Film film(red);
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150}, {device});
  EXPECT_TRUE(film.shows(50, 20, blue));
  EXPECT_TRUE(film.shows(100, 100, grey));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(PointerTest, leavesWhatWasUnderItWhenItMoves) {
  usePointer(0xFF0000FF);
  painter.movePointer(150, 120);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  ASSERT_TRUE(film.shows(50, 20, blue));
  painter.movePointer(200, 200);
  EXPECT_TRUE(film.shows(100, 100, blue));
  EXPECT_EQ(colourAt(*film.last(), 50, 20), grey);
  painter.movePointer(20, 20);
  EXPECT_TRUE(film.shows(100, 100, grey));
  EXPECT_FALSE(holds(*film.last(), blue));
}

TEST_F(PointerTest, isCutAtTheEdge) {
  usePointer(0xFF0000FF);
  painter.movePointer(100, 100);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  EXPECT_TRUE(film.shows(0, 0, blue));
  painter.movePointer(299, 249);
  EXPECT_TRUE(film.shows(199, 149, blue));
  EXPECT_EQ(colourAt(*film.last(), 0, 0), grey);
}

TEST_F(PointerTest, showsANewLookWhereItIs) {
  usePointer(0xFF0000FF);
  painter.movePointer(150, 120);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  ASSERT_TRUE(film.shows(50, 20, blue));
  usePointer(0xFF00FF00);
  EXPECT_TRUE(film.shows(50, 20, green));
}

TEST_F(PointerTest, makesNoPictureWhereItIsNot) {
  usePointer(0xFF0000FF);
  painter.movePointer(20, 20);
  Film film;
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150});
  ASSERT_TRUE(film.shows(50, 20, grey));
  std::this_thread::sleep_for(400ms);  // until nothing waits for painting any more
  const int count = film.count();
  for (int step = 0; step < 20; ++step) {
    painter.movePointer(20 + step, 30);
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_EQ(film.count(), count);
}

TEST_F(PointerTest, isLeftOutWhereItIsNotWanted) {
  usePointer(0xFFFF0000);
  painter.movePointer(150, 120);
  Film film(red);
  const auto stream = this->film(film, {100, 100, 200, 150}, {200, 150}, {}, false);
  ASSERT_TRUE(film.shows(50, 20, grey));
  painter.movePointer(200, 200);
  painter.window({250, 200, 20, 20}, green);
  EXPECT_TRUE(film.shows(155, 105, green));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

}  // namespace
}  // namespace lenslark
