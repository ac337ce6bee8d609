#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "platform/Film.h"
#include "platform/linux/X11Stream.h"
#include "platform/linux/XcbWindows.h"
#include "support/XPainter.h"
#include "support/XvfbServer.h"

namespace lenslark {
namespace {

/// By more than rounding.
bool farApart(std::uint32_t one, std::uint32_t other) {
  for (int shift = 0; shift < 24; shift += 8) {
    const int a = static_cast<int>(one >> shift & 0xFF);
    const int b = static_cast<int>(other >> shift & 0xFF);
    if (std::abs(a - b) > 2) return true;
  }
  return false;
}

class ScreenCaptureTest : public testing::Test {
 protected:
  std::unique_ptr<ScreenStream> filmArea(const PixelRect& area, std::vector<std::uint32_t> excluded,
                                         Film& film, Screen::Request request) {
    return startX11Stream(
        [&](const X11Connection& x) {
          return makeAreaScene(x, area, {{}, {}, std::move(excluded)});
        },
        request, film.onFrame(), film.onStop());
  }

  void expectChangesDrawnAsTheWhole(Size output);

  XvfbServer server;
  XPainter painter;
};

TEST_F(ScreenCaptureTest, filmsADisplay) {
  painter.window({100, 100, 200, 100}, red);
  Film film;
  const auto stream = startX11Stream(
      [](const X11Connection& x) {
        return makeDisplayScene(x, XcbWindows::displays(x).front().id);
      },
      plain(1280, 800), film.onFrame(), film.onStop());
  EXPECT_TRUE(film.shows(150, 150, red));
}

TEST_F(ScreenCaptureTest, tellsOfAChange) {
  const auto window = painter.window({100, 100, 200, 100}, red);
  Film film;
  const auto stream = filmArea({0, 0, 400, 300}, {}, film, plain(400, 300));
  ASSERT_TRUE(film.shows(150, 150, red));
  painter.fill(window, {0, 0, 200, 100}, green);
  EXPECT_TRUE(film.shows(150, 150, green));
}

TEST_F(ScreenCaptureTest, makesNoPictureWhileNothingChanges) {
  painter.window({100, 100, 200, 100}, red);
  Film film;
  const auto stream = filmArea({0, 0, 400, 300}, {}, film, plain(400, 300));
  ASSERT_TRUE(film.shows(150, 150, red));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  const int count = film.count();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(film.count(), count);
}

TEST_F(ScreenCaptureTest, showsWhatLiesUnderAnExcludedWindow) {
  painter.window({0, 0, 400, 300}, green);
  const auto device = painter.window({100, 100, 200, 100}, red);
  Film film(red);
  const auto stream = filmArea({100, 100, 200, 100}, {device}, film, plain(200, 100));
  EXPECT_TRUE(film.shows(50, 50, green));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenCaptureTest, showsWhatLiesOverTheExcludedWindow) {
  const auto device = painter.window({100, 100, 200, 100}, red);
  painter.window({150, 120, 50, 50}, blue);
  Film film(red);
  const auto stream = filmArea({100, 100, 200, 100}, {device}, film, plain(200, 100));
  EXPECT_TRUE(film.shows(60, 30, blue));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenCaptureTest, showsTheRootsBackgroundUnderAnExcludedWindow) {
  painter.paintRoot(grey);
  const auto device = painter.window({100, 100, 200, 100}, red);
  Film film(red);
  const auto stream = filmArea({100, 100, 200, 100}, {device}, film, plain(200, 100));
  EXPECT_TRUE(film.shows(50, 50, grey));
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenCaptureTest, showsTheUpperOfTwoWindows) {
  const auto lower = painter.window({0, 0, 200, 200}, green);
  painter.window({0, 0, 100, 100}, blue);
  Film film;
  const auto stream = filmArea({0, 0, 200, 200}, {}, film, plain(200, 200));
  ASSERT_TRUE(film.shows(50, 50, blue));
  painter.raise(lower);
  EXPECT_TRUE(film.shows(50, 50, green));
}

TEST_F(ScreenCaptureTest, neverShowsTheExcludedWindowWhileItIsDragged) {
  painter.paintRoot(grey);
  painter.window({0, 0, 300, 600}, green);
  painter.window({300, 0, 300, 600}, blue);
  const auto device = painter.window({10, 10, 120, 200}, red);
  Film film(red);
  const auto stream = filmArea({10, 10, 120, 200}, {device}, film, plain(120, 200));
  ASSERT_TRUE(eventually([&] { return film.count() > 0; }));
  for (int step = 0; step < 150; ++step) {
    painter.move(device, 10 + step * 4, 10 + step);
    stream->retarget({10 + step * 4, 10 + step, 120, 200}, {120, 200});
    if (step % 10 == 0) painter.raise(device);
    if (step % 25 == 0) {
      painter.unmap(device);
      painter.map(device);
    }
    if (step % 30 == 0) painter.resize(device, 120 + step % 20, 200);
    std::this_thread::sleep_for(std::chrono::milliseconds(7));
  }
  EXPECT_GT(film.count(), 10);
  EXPECT_EQ(film.forbiddenFrames(), 0);
}

TEST_F(ScreenCaptureTest, showsWindowsThatAppearLater) {
  Film film;
  const auto stream = filmArea({0, 0, 200, 200}, {}, film, plain(200, 200));
  ASSERT_TRUE(eventually([&] { return film.count() > 0; }));
  painter.window({0, 0, 100, 100}, blue);
  EXPECT_TRUE(film.shows(50, 50, blue));
}

TEST_F(ScreenCaptureTest, forgetsWindowsThatGo) {
  painter.window({0, 0, 200, 200}, green);
  const auto upper = painter.window({0, 0, 100, 100}, blue);
  Film film;
  const auto stream = filmArea({0, 0, 200, 200}, {}, film, plain(200, 200));
  ASSERT_TRUE(film.shows(50, 50, blue));
  painter.destroy(upper);
  EXPECT_TRUE(film.shows(50, 50, green));
}

TEST_F(ScreenCaptureTest, followsAnotherArea) {
  painter.window({0, 0, 100, 100}, green);
  painter.window({400, 300, 100, 100}, blue);
  Film film;
  const auto stream = filmArea({0, 0, 100, 100}, {}, film, plain(100, 100));
  ASSERT_TRUE(film.shows(50, 50, green));
  stream->retarget({400, 300, 100, 100}, {100, 100});
  EXPECT_TRUE(film.shows(50, 50, blue));
}

TEST_F(ScreenCaptureTest, changesThePictureSizeWithTheArea) {
  Film film;
  const auto stream = filmArea({0, 0, 100, 100}, {}, film, plain(100, 100));
  ASSERT_TRUE(eventually([&] { return film.count() > 0; }));
  stream->retarget({0, 0, 200, 100}, {200, 100});
  EXPECT_TRUE(eventually([&] { return film.last()->size() == Size{200, 100}; }));
}

/// Frames of which little is drawn anew must be the same as those drawn at once.
void ScreenCaptureTest::expectChangesDrawnAsTheWhole(Size output) {
  const auto lower = painter.window({0, 0, 600, 400}, green);
  Film film;
  const auto stream = filmArea({0, 0, 600, 400}, {}, film, plain(output.width, output.height));
  ASSERT_TRUE(eventually([&] { return film.count() > 0; }));
  for (int step = 0; step < 120; ++step) {
    const std::uint32_t colour = step % 2 == 0 ? blue : white;
    painter.fill(lower, {step * 13 % 500, step * 7 % 350, 31 + step % 40, 17}, colour);
    // First each for itself, then many in one picture.
    if (step < 40) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  painter.fill(lower, {590, 390, 10, 10}, grey);
  Film whole;
  const auto other = filmArea({0, 0, 600, 400}, {}, whole, plain(output.width, output.height));
  ASSERT_TRUE(eventually([&] { return whole.count() > 0; }));
  EXPECT_TRUE(eventually([&] {
    const FramePtr one = film.last();
    const FramePtr two = whole.last();
    for (int y = 0; y < output.height; ++y) {
      for (int x = 0; x < output.width; ++x) {
        if (farApart(colourAt(*one, x, y), colourAt(*two, x, y))) return false;
      }
    }
    return true;
  }));
}

TEST_F(ScreenCaptureTest, drawsWhatChangesAsItWouldDrawTheWhole) {
  expectChangesDrawnAsTheWhole({400, 266});
}

TEST_F(ScreenCaptureTest, drawsWhatChangesAsTheWholeWhereSidesShrinkToLessThanHalf) {
  expectChangesDrawnAsTheWhole({160, 106});
}

TEST_F(ScreenCaptureTest, filmsACoveredWindowsOwnPixels) {
  const auto window = painter.window({100, 100, 200, 100}, red);
  painter.window({0, 0, 800, 600}, white);
  Film film;
  const auto stream =
      startX11Stream([&](const X11Connection& x) { return makeWindowScene(x, window); },
                     plain(200, 100), film.onFrame(), film.onStop());
  painter.fill(window, {0, 0, 200, 100}, red);
  EXPECT_TRUE(film.shows(100, 50, red));
}

TEST_F(ScreenCaptureTest, keepsTheLastPictureOfAWindowWhileItIsNotMapped) {
  const auto window = painter.window({100, 100, 200, 100}, red);
  Film film;
  const auto stream =
      startX11Stream([&](const X11Connection& x) { return makeWindowScene(x, window); },
                     {{200, 100}, 30, true}, film.onFrame(), film.onStop());
  ASSERT_TRUE(film.shows(50, 50, red));
  painter.unmap(window);
  painter.resize(window, 400, 200);
  painter.movePointer(150, 150);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(film.shows(50, 90, red));
  painter.map(window);
  painter.fill(window, {0, 0, 400, 200}, green);
  EXPECT_TRUE(film.shows(10, 90, green));
  EXPECT_EQ(film.stopped(), "");
}

TEST_F(ScreenCaptureTest, fitsPicturesOnBlack) {
  painter.window({0, 0, 100, 100}, green);
  Film film;
  const auto stream = filmArea({0, 0, 100, 100}, {}, film, plain(200, 100));
  ASSERT_TRUE(film.shows(100, 50, green));
  EXPECT_EQ(colourAt(*film.last(), 10, 50), 0U);
}

TEST_F(ScreenCaptureTest, tellsWhenTheWindowIsClosed) {
  const auto window = painter.window({100, 100, 200, 100}, red);
  Film film;
  const auto stream =
      startX11Stream([&](const X11Connection& x) { return makeWindowScene(x, window); },
                     plain(200, 100), film.onFrame(), film.onStop());
  painter.destroy(window);
  EXPECT_TRUE(eventually([&] { return !film.stopped().empty(); }));
}

TEST_F(ScreenCaptureTest, tellsWhenTheServerGoes) {
  Film film;
  const auto stream = filmArea({0, 0, 100, 100}, {}, film, plain(100, 100));
  server.end();
  EXPECT_TRUE(eventually([&] { return !film.stopped().empty(); }));
}

TEST(ScreenCaptureWithoutServerTest, saysThatThereIsNoDisplay) {
  const ScopedVariable display("DISPLAY", std::nullopt);
  Film film;
  EXPECT_THROW(startX11Stream([](const X11Connection& x) { return makeDisplayScene(x, 0); },
                              plain(10, 10), film.onFrame(), film.onStop()),
               CaptureError);
}

}  // namespace
}  // namespace lenslark
