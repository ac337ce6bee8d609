#include <gtest/gtest.h>
#include <xcb/shape.h>

#include <thread>

#include "platform/Film.h"
#include "platform/linux/X11Stream.h"
#include "support/Subprocess.h"
#include "support/XPainter.h"
#include "support/XvfbServer.h"

/// Whatever happens on a screen, no pixel of an excluded window gets into a picture: not one of any
/// frame of the film.
namespace lenslark {
namespace {

using namespace std::chrono_literals;

constexpr PixelRect whole{0, 0, 600, 400};
constexpr PixelRect deviceFrame{100, 100, 200, 150};

class ScreenExclusionTest : public testing::Test {
 protected:
  std::unique_ptr<ScreenStream> film(Film& film, ExcludedApplications excluded,
                                     const PixelRect& area = whole) {
    return startX11Stream([&](const X11Connection& x) { return makeAreaScene(x, area, excluded); },
                          plain(area.width, area.height), film.onFrame(), film.onStop());
  }
  std::unique_ptr<ScreenStream> filmWithout(xcb_window_t window, Film& onFilm) {
    return film(onFilm, {{}, {}, {window}});
  }

  /// A picture that was made after everything so far: the corner of the screen has changed.
  void settle(const Film& film) {
    mark_ = mark_ == 0x010101 ? 0x020202 : 0x010101;
    painter.fill(corner_, {0, 0, 4, 4}, mark_);
    ASSERT_TRUE(film.shows(598, 398, mark_));
  }

  XvfbServer server;
  XPainter painter;

 private:
  const xcb_window_t corner_ = painter.window({596, 396, 4, 4}, 0);
  std::uint32_t mark_ = 0;
};

// The stores of covered windows

TEST_F(ScreenExclusionTest, aCoveredWindowThatNeverPaintsShowsNothingOfTheOneOverIt) {
  const auto hung = painter.windowWith({0, 0, 400, 300}, 0, {.background = false});
  painter.fill(hung, {0, 0, 400, 300}, green);
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  EXPECT_TRUE(film.shows(50, 50, green));
  std::this_thread::sleep_for(600ms);  // longer than what is unknown waits for painting
  settle(film);
  EXPECT_EQ(colourAt(*film.last(), 50, 50), green);
  EXPECT_EQ(colourAt(*film.last(), 200, 150), 0U);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aCoveredWindowShowsWhatItPaintsAfterAll) {
  const auto slow = painter.windowWith({0, 0, 400, 300}, 0, {.background = false});
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  std::this_thread::sleep_for(400ms);
  painter.fill(slow, {0, 0, 400, 300}, green);
  EXPECT_TRUE(film.shows(200, 150, green));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aSecondFilmShowsCoveredWindowsToo) {
  painter.window({0, 0, 400, 300}, green);
  const auto device = painter.window(deviceFrame, red);
  Film first(red);
  const auto one = filmWithout(device, first);
  ASSERT_TRUE(first.shows(200, 150, green));
  Film second(red);
  const auto other = filmWithout(device, second);
  EXPECT_TRUE(second.shows(200, 150, green));
  EXPECT_EQ(second.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aSecondFilmOfAHungWindowShowsNothingOfTheOneOverIt) {
  painter.windowWith({0, 0, 400, 300}, 0, {.background = false});
  const auto device = painter.window(deviceFrame, red);
  Film first(red);
  Film second(red);
  const auto one = filmWithout(device, first);
  const auto other = filmWithout(device, second);
  std::this_thread::sleep_for(600ms);
  settle(second);
  EXPECT_EQ(first.forbiddenFrames(), 0);
  EXPECT_EQ(second.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aWindowThatIsMappedOverTheDeviceAndNeverPaintsShowsNothingOfIt) {
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(500, 50, 0));
  painter.windowWith({50, 50, 300, 300}, 0, {.background = false});
  std::this_thread::sleep_for(600ms);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aWindowThatGrowsOverTheDeviceAndNeverPaintsShowsNothingOfIt) {
  const auto device = painter.window(deviceFrame, red);
  const auto hung = painter.windowWith({80, 80, 60, 60}, 0, {.background = false});
  painter.fill(hung, {0, 0, 60, 60}, green);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(90, 90, green));
  for (int size = 60; size < 300; size += 20) {
    painter.resize(hung, size, size);
    std::this_thread::sleep_for(20ms);
  }
  std::this_thread::sleep_for(400ms);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aWindowThatAppearsWhereTheDeviceHasJustBeenShowsNothingOfIt) {
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(500, 50, 0));
  for (int round = 0; round < 20; ++round) {
    painter.move(device, 100, 100);
    std::this_thread::sleep_for(10ms);
    painter.move(device, 350, 200);
    const auto hung = painter.windowWith(deviceFrame, 0, {.background = false});
    std::this_thread::sleep_for(20ms);
    painter.destroy(hung);
  }
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

// Who is excluded

TEST_F(ScreenExclusionTest, everyWindowOfAnApplicationIsOut) {
  const auto lower = painter.window({0, 0, 400, 300}, green);
  XPainter emulator;
  const auto main = emulator.windowWith(deviceFrame, red, {.mapped = false});
  emulator.setClass(main, "qemu-system-x86_64");
  emulator.map(main);
  Film film(red);
  const auto stream = this->film(film, {{}, {"qemu-system"}, {}});
  ASSERT_TRUE(film.shows(200, 150, green));
  const auto menu = emulator.windowWith({20, 20, 60, 60}, red, {.mapped = false});
  emulator.setClass(menu, "qemu-system-x86_64");
  emulator.map(menu);
  emulator.raise(main);
  painter.raise(lower);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aFrameThatAnExcludedWindowIsPutIntoIsOut) {
  XPainter manager;
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  const auto frame = manager.window({60, 60, 260, 220}, blue);
  ASSERT_TRUE(film.shows(70, 70, blue));
  manager.reparent(device, frame, 10, 30);
  EXPECT_TRUE(film.shows(70, 70, 0));
  manager.move(frame, 200, 100);
  manager.resize(frame, 300, 240);
  manager.raise(frame);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aFrameInsideAFrameIsOut) {
  XPainter manager;
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  const auto frame = manager.window({60, 60, 260, 220}, blue);
  const auto wrapper = manager.windowWith({5, 20, 240, 190}, blue, {.parent = frame});
  ASSERT_TRUE(film.shows(70, 70, blue));
  manager.reparent(device, wrapper, 0, 0);
  EXPECT_TRUE(film.shows(70, 70, 0));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aFrameThatIsMadeLaterInsideAFrameIsOut) {
  XPainter manager;
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  const auto frame = manager.window({60, 60, 260, 220}, blue);
  ASSERT_TRUE(film.shows(70, 70, blue));
  const auto wrapper = manager.windowWith({5, 20, 240, 190}, green, {.parent = frame});
  ASSERT_TRUE(film.shows(100, 150, green));
  manager.reparent(device, wrapper, 0, 0);
  EXPECT_TRUE(film.shows(70, 70, 0));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aFrameThatAnExcludedWindowHasLeftShowsNothingOfIt) {
  XPainter manager;
  const auto frame = manager.windowWith({60, 60, 260, 220}, 0, {.background = false});
  const auto device = painter.windowWith({0, 0, 200, 150}, red, {.parent = frame});
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(500, 50, 0));
  manager.reparent(device, manager.root(), 300, 200);
  std::this_thread::sleep_for(600ms);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

/// An application's window in a window manager's frame, and in it a place for others' windows.
struct Host {
  xcb_window_t frame;
  xcb_window_t place;
};

Host makeHost(XPainter& manager, XPainter& application) {
  const auto frame = manager.window({60, 60, 260, 220}, blue);
  const auto main = application.windowWith({5, 20, 250, 195}, blue, {.parent = frame});
  const auto panel = application.windowWith({0, 0, 250, 195}, blue, {.parent = main});
  return {frame, application.windowWith({0, 0, 250, 195}, blue, {.parent = panel})};
}

TEST_F(ScreenExclusionTest, anApplicationThatHoldsAnExcludedWindowDeepInsideIsOut) {
  XPainter manager;
  XPainter application;
  const Host host = makeHost(manager, application);
  painter.windowWith({0, 0, 200, 150}, green, {.parent = host.place});
  XPainter emulator;
  const auto device = emulator.windowWith({20, 20, 100, 80}, red, {.parent = host.place});
  Film film(red);
  const auto stream = filmWithout(device, film);
  settle(film);
  EXPECT_TRUE(film.shows(70, 70, 0));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, anApplicationThatAnExcludedWindowIsPutDeepIntoIsOut) {
  XPainter manager;
  XPainter application;
  const Host host = makeHost(manager, application);
  XPainter emulator;
  const auto device = emulator.window({400, 100, 100, 80}, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(70, 70, blue));
  emulator.reparent(device, host.place, 20, 20);
  EXPECT_TRUE(film.shows(70, 70, 0));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, anApplicationThatHeldAnExcludedWindowIsShownWhenThatHasGone) {
  XPainter manager;
  XPainter application;
  const Host host = makeHost(manager, application);
  XPainter emulator;
  const auto device = emulator.windowWith({20, 20, 100, 80}, red, {.parent = host.place});
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(70, 70, 0));
  emulator.destroy(device);
  EXPECT_TRUE(film.shows(70, 70, blue));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aPlaceThatIsMadeLaterInsideAnApplicationIsWatched) {
  XPainter manager;
  XPainter application;
  const Host host = makeHost(manager, application);
  XPainter emulator;
  const auto device = emulator.window({400, 100, 100, 80}, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(70, 70, blue));
  const auto place = application.windowWith({10, 10, 200, 150}, green, {.parent = host.place});
  ASSERT_TRUE(film.shows(150, 150, green));
  emulator.reparent(device, place, 20, 20);
  EXPECT_TRUE(film.shows(70, 70, 0));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, anExcludedWindowsBorderIsOut) {
  const auto device = painter.windowWith(deviceFrame, red, {.border = 10, .borderColour = red});
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(500, 50, 0));
  painter.move(device, 150, 120);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

// What belongs into the picture

TEST_F(ScreenExclusionTest, theBordersOfOthersAreShown) {
  const auto device = painter.window(deviceFrame, red);
  painter.windowWith({120, 120, 50, 50}, green, {.border = 8, .borderColour = blue});
  Film film(red);
  const auto stream = filmWithout(device, film);
  EXPECT_TRUE(film.shows(150, 150, green));
  EXPECT_TRUE(film.shows(124, 150, blue));
  EXPECT_TRUE(film.shows(182, 150, blue));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aWindowWithAlphaIsOpaqueWithoutACompositor) {
  painter.window({0, 0, 400, 300}, green);
  const auto device = painter.window(deviceFrame, red);
  painter.windowWith({150, 120, 60, 60}, 0x000000FF, {.alpha = true});
  Film film(red);
  const auto stream = filmWithout(device, film);
  EXPECT_TRUE(film.shows(180, 150, blue));
  EXPECT_TRUE(film.shows(110, 110, green));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenExclusionTest, aWindowsNewShapeIsFollowed) {
  painter.window({0, 0, 400, 300}, green);
  const auto shaped = painter.window({20, 20, 60, 60}, blue);
  Film film(red);
  const auto stream = this->film(film, {});
  ASSERT_TRUE(film.shows(30, 30, blue));
  const xcb_rectangle_t half{0, 0, 30, 60};
  xcb_shape_rectangles(painter.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, 0, shaped, 0, 0, 1,
                       &half);
  painter.sync();
  EXPECT_TRUE(film.shows(70, 30, green));
  EXPECT_TRUE(film.shows(30, 30, blue));
}

TEST_F(ScreenExclusionTest, theRootsPatternLiesWhereItIsOnTheScreen) {
  // Stripes of eight pixels, as a pixmap that only the server knows of.
  const xcb_pixmap_t tile = xcb_generate_id(painter.get());
  xcb_create_pixmap(painter.get(), 24, tile, painter.root(), 16, 16);
  const auto paint = [&](const xcb_rectangle_t& rect, std::uint32_t colour) {
    const xcb_gcontext_t gc = xcb_generate_id(painter.get());
    xcb_create_gc(painter.get(), gc, tile, XCB_GC_FOREGROUND, &colour);
    xcb_poly_fill_rectangle(painter.get(), tile, gc, 1, &rect);
    xcb_free_gc(painter.get(), gc);
  };
  paint({0, 0, 16, 16}, green);
  paint({0, 0, 8, 16}, blue);
  xcb_change_window_attributes(painter.get(), painter.root(), XCB_CW_BACK_PIXMAP, &tile);
  xcb_clear_area(painter.get(), 0, painter.root(), 0, 0, 0, 0);
  const auto device = painter.window({99, 100, 200, 150}, red);
  Film film(red);
  const auto stream = this->film(film, {{}, {}, {device}}, {99, 100, 200, 150});
  for (const int x : {0, 4, 5, 12, 13, 20, 21, 100}) {
    const std::uint32_t expected = (99 + x) % 16 < 8 ? blue : green;
    EXPECT_TRUE(film.shows(x, 60, expected)) << "at " << x;
  }
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

// Compositors

class CompositorTest : public ScreenExclusionTest {
 protected:
  /// Whether a compositor has taken the screen over.
  bool composited() {
    const std::string name = "_NET_WM_CM_S0";
    auto* atom = xcb_intern_atom_reply(
        painter.get(),
        xcb_intern_atom(painter.get(), 0, static_cast<std::uint16_t>(name.size()), name.data()),
        nullptr);
    auto* owner = xcb_get_selection_owner_reply(
        painter.get(), xcb_get_selection_owner(painter.get(), atom->atom), nullptr);
    const bool owned = owner->owner != XCB_NONE;
    std::free(atom);
    std::free(owner);
    return owned;
  }

  static std::unique_ptr<Subprocess> compositor() {
    return std::make_unique<Subprocess>(std::vector<std::string>{
        "picom", "--config", "/dev/null", "--backend", "xrender", "--no-fading-openclose"});
  }

  void agitate(xcb_window_t device, int steps) {
    for (int step = 0; step < steps; ++step) {
      painter.move(device, 50 + step * 7 % 200, 60 + step * 3 % 100);
      if (step % 5 == 0) painter.raise(device);
      std::this_thread::sleep_for(10ms);
    }
  }
};

TEST_F(CompositorTest, thatComesAndGoesBringsNothingExcludedIntoThePicture) {
  painter.window({0, 0, 400, 300}, green);
  const auto device = painter.window(deviceFrame, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  ASSERT_TRUE(film.shows(200, 150, green));
  for (int round = 0; round < 2; ++round) {
    auto picom = compositor();
    ASSERT_TRUE(eventually([&] {
      agitate(device, 2);
      return composited();
    }));
    agitate(device, 40);
    settle(film);
    picom->end();
    ASSERT_TRUE(eventually([&] { return !composited(); }));
    agitate(device, 20);
    settle(film);
  }
  EXPECT_TRUE(film.shows(200, 150, green));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(CompositorTest, thatRunsAlreadyLeavesAllAsItIs) {
  painter.paintRoot(grey);
  const auto picom = compositor();
  ASSERT_TRUE(eventually([&] { return composited(); }));
  painter.window({0, 0, 300, 300}, green);
  const auto device = painter.window({100, 100, 300, 150}, red);
  Film film(red);
  const auto stream = filmWithout(device, film);
  EXPECT_TRUE(film.shows(200, 150, green));
  EXPECT_TRUE(film.shows(350, 150, grey));
  agitate(device, 40);
  settle(film);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(CompositorTest, shinesThroughWindowsWithAlpha) {
  painter.window({0, 0, 400, 300}, green);
  painter.windowWith({150, 120, 60, 60}, 0x8000007F, {.alpha = true});
  Film film(red);
  const auto stream = this->film(film, {});
  ASSERT_TRUE(film.shows(180, 150, 0x00007F));
  const auto picom = compositor();
  EXPECT_TRUE(eventually([&] {
    const std::uint32_t colour = colourAt(*film.last(), 180, 150);
    return (colour & 0xFF) == 0x7F && (colour >> 8 & 0xFF) >= 0x7E && (colour >> 8 & 0xFF) <= 0x80;
  }));
}

}  // namespace
}  // namespace lenslark
