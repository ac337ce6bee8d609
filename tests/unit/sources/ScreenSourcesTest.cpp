#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "graphics/PixelBuffer.h"
#include "sources/DesktopUnderWindowSource.h"
#include "sources/ScreenSource.h"

namespace lenslark {
namespace {

struct Call {
  std::string kind;
  std::uint32_t id = 0;
  PixelRect area;
  Size output;
  int fps = 0;
};

/// A screen that only writes down what it is asked for.
class FakeScreen final : public Screen {
 public:
  class Stream final : public ScreenStream {
   public:
    explicit Stream(FakeScreen& screen) : screen_(screen) { screen_.running += 1; }
    ~Stream() override { screen_.running -= 1; }
    void retarget(const PixelRect& area, Size output) override {
      screen_.calls.push_back({"retarget", 0, area, output, 0});
    }

   private:
    FakeScreen& screen_;
  };

  ScreenContent content() override { return shown; }
  std::optional<Rect> windowBounds(std::uint32_t) override { return bounds; }
  std::unique_ptr<ScreenStream> captureDisplay(std::uint32_t display, const Request& request,
                                               FrameHandler frames, StopHandler stops) override {
    return open({"display", display, {}, request.output, request.fps}, frames, stops);
  }
  std::unique_ptr<ScreenStream> captureWindow(std::uint32_t window, const Request& request,
                                              FrameHandler frames, StopHandler stops) override {
    return open({"window", window, {}, request.output, request.fps}, frames, stops);
  }
  std::unique_ptr<ScreenStream> captureArea(const PixelRect& area,
                                            const ExcludedApplications& applications,
                                            const Request& request, FrameHandler frames,
                                            StopHandler stops) override {
    excluded = applications;
    if (refuses) throw CaptureError::unavailable("refused");
    return open({"area", 0, area, request.output, request.fps}, frames, stops);
  }

  ScreenContent shown{.displays = {{7, "one", {0, 0, 1000, 800}}, {8, "two", {1000, 0, 1000, 800}}},
                      .windows = {}};
  std::optional<Rect> bounds = Rect{100, 100, 200, 400};
  std::vector<Call> calls;
  ExcludedApplications excluded;
  FrameHandler onFrame;
  StopHandler onStop;
  int running = 0;
  bool refuses = false;

 private:
  std::unique_ptr<ScreenStream> open(Call call, FrameHandler frames, StopHandler stops) {
    calls.push_back(std::move(call));
    onFrame = std::move(frames);
    onStop = std::move(stops);
    return std::make_unique<Stream>(*this);
  }
};

WindowInfo window(std::uint32_t id, std::string title, std::string application, int layer = 0) {
  return {.id = id,
          .title = std::move(title),
          .applicationName = std::move(application),
          .layer = layer,
          .frame = {0, 0, 300, 200}};
}

ConnectedDevice emulator() {
  return {.key = DeviceKey::android("Pixel"),
          .name = "Pixel",
          .feed = ConnectedDevice::Emulator{42},
          .window = DeviceWindow{DeviceWindow::AndroidEmulator{42}, "Pixel", 99}};
}

ConnectedDevice simulator() {
  return {.key = DeviceKey::ios("U"),
          .name = "iPhone",
          .feed = ConnectedDevice::Simulator{"U"},
          .window = DeviceWindow{DeviceWindow::IosSimulator{"U"}, "iPhone", 99}};
}

void ignore(const FramePtr&) {}

class ScreenSourceTest : public testing::Test {
 protected:
  FakeScreen screen;
};

TEST_F(ScreenSourceTest, filmsTheDisplayOfTheIndex) {
  ScreenSource source(screen, {.source = {CaptureSource::Display{1}}});
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).kind, "display");
  EXPECT_EQ(screen.calls.at(0).id, 8U);
  EXPECT_EQ(screen.calls.at(0).output, (Size{1280, 720}));
}

TEST_F(ScreenSourceTest, refusesAnIndexThatNoDisplayHas) {
  for (const std::int64_t index : {std::int64_t{2}, std::int64_t{-1}, std::int64_t{1} << 32}) {
    ScreenSource source(screen, {.source = {CaptureSource::Display{index}}});
    EXPECT_THROW(source.start(ignore), CaptureError);
  }
}

TEST_F(ScreenSourceTest, saysHowToFindADisplay) {
  ScreenSource source(screen, {.source = {CaptureSource::Display{5}}});
  try {
    source.start(ignore);
    FAIL();
  } catch (const CaptureError& error) {
    EXPECT_STREQ(error.what(), "No display at index 5. Run `lenslark sources` to list them.");
  }
}

TEST_F(ScreenSourceTest, findsAWindowByItsTitleInAnyCase) {
  screen.shown.windows = {window(1, "Mail", "mailer"), window(2, "Safari Tech", "browser")};
  ScreenSource source(screen, {.source = {CaptureSource::Window{"safari"}}});
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).id, 2U);
}

TEST_F(ScreenSourceTest, findsAWindowByItsApplication) {
  screen.shown.windows = {window(1, "Mail", "mailer"), window(2, "Start", "Browser")};
  ScreenSource source(screen, {.source = {CaptureSource::Window{"BROWS"}}});
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).id, 2U);
}

TEST_F(ScreenSourceTest, passesOverMenusAndPanels) {
  screen.shown.windows = {window(1, "Mail", "mailer", 25)};
  ScreenSource source(screen, {.source = {CaptureSource::Window{"mail"}}});
  EXPECT_THROW(source.start(ignore), CaptureError);
}

TEST_F(ScreenSourceTest, takesARateBelowTwoForOne) {
  ScreenSource source(screen, {.source = {CaptureSource::Display{0}}, .fps = 0});
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).fps, 1);
}

TEST_F(ScreenSourceTest, tellsWhyTheCaptureEnded) {
  ScreenSource source(screen, {.source = {CaptureSource::Display{0}}});
  source.start(ignore);
  EXPECT_FALSE(source.problem());
  screen.onStop(CaptureError::unavailable("gone"));
  EXPECT_TRUE(source.problem());
}

TEST_F(ScreenSourceTest, endsTheStreamWhenStopped) {
  ScreenSource source(screen, {.source = {CaptureSource::Display{0}}});
  source.start(ignore);
  source.stop();
  EXPECT_EQ(screen.running, 0);
}

using DesktopUnderWindowSourceTest = ScreenSourceTest;

TEST_F(DesktopUnderWindowSourceTest, filmsWhereTheWindowIs) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).area, (PixelRect{100, 100, 200, 400}));
  EXPECT_EQ(screen.calls.at(0).output, (Size{640, 1280}));
}

TEST_F(DesktopUnderWindowSourceTest, filmsOnTheDisplayOfTheWindow) {
  screen.bounds = Rect{1950, 100, 200, 400};
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).area, (PixelRect{1800, 100, 200, 400}));
}

TEST_F(DesktopUnderWindowSourceTest, filmsALandscapeUnderAnEmulator) {
  screen.bounds = Rect{300, 100, 300, 600};
  DesktopUnderWindowSource source(screen, emulator(), {}, 30);
  source.start(ignore);
  EXPECT_EQ(screen.calls.at(0).area, (PixelRect{183, 200, 533, 400}));
}

TEST_F(DesktopUnderWindowSourceTest, leavesTheApplicationsOut) {
  DesktopUnderWindowSource source(screen, emulator(), {{}, {"qemu-system"}, {}}, 30);
  source.start(ignore);
  EXPECT_EQ(screen.excluded.namePrefixes, std::vector<std::string>{"qemu-system"});
  EXPECT_EQ(screen.excluded.windows, std::vector<std::uint32_t>{99});
}

TEST_F(DesktopUnderWindowSourceTest, followsDisplaysThatChange) {
  screen.bounds = Rect{950, 100, 200, 400};
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  ASSERT_EQ(screen.calls.at(0).area, (PixelRect{1000, 100, 200, 400}));
  screen.shown.displays.pop_back();
  EXPECT_TRUE(source.track());
  EXPECT_EQ(screen.calls.back().area, (PixelRect{800, 100, 200, 400}));
  EXPECT_FALSE(source.track());
}

TEST_F(DesktopUnderWindowSourceTest, followsAWindowThatMoved) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  screen.bounds = Rect{150, 120, 200, 400};
  EXPECT_TRUE(source.track());
  EXPECT_EQ(screen.calls.back().kind, "retarget");
  EXPECT_EQ(screen.calls.back().area, (PixelRect{150, 120, 200, 400}));
}

TEST_F(DesktopUnderWindowSourceTest, leavesAStillWindowAlone) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  EXPECT_FALSE(source.track());
  EXPECT_EQ(screen.calls.size(), 1U);
}

TEST_F(DesktopUnderWindowSourceTest, staysWhereAWindowVanished) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  screen.bounds.reset();
  EXPECT_FALSE(source.track());
}

TEST_F(DesktopUnderWindowSourceTest, filmsNothingUnderAWindowOnNoDisplay) {
  screen.bounds = Rect{5000, 100, 200, 400};
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  EXPECT_TRUE(screen.calls.empty());
  EXPECT_FALSE(source.track());
  EXPECT_EQ(source.problem(), std::nullopt);
}

TEST_F(DesktopUnderWindowSourceTest, filmsAWindowThatComesOntoADisplay) {
  screen.bounds = Rect{5000, 100, 200, 400};
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  screen.bounds = Rect{100, 100, 200, 400};
  EXPECT_TRUE(source.track());
  EXPECT_EQ(screen.calls.at(0).area, (PixelRect{100, 100, 200, 400}));
  source.stop();
  EXPECT_EQ(screen.running, 0);
}

TEST_F(DesktopUnderWindowSourceTest, stopsFilmingWhileTheWindowIsOnNoDisplay) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  screen.bounds = Rect{5000, 100, 200, 400};
  EXPECT_TRUE(source.track());
  EXPECT_EQ(screen.running, 0);
  screen.bounds = Rect{100, 100, 200, 400};
  EXPECT_TRUE(source.track());
  EXPECT_EQ(screen.running, 1);
}

TEST_F(DesktopUnderWindowSourceTest, tellsWhyItDoesNotFilmAgain) {
  screen.bounds = Rect{5000, 100, 200, 400};
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  screen.bounds = Rect{100, 100, 200, 400};
  screen.refuses = true;
  source.track();
  EXPECT_EQ(source.problem(), "The screen cannot be captured: refused");
}

TEST_F(DesktopUnderWindowSourceTest, followsNothingAfterItWasStopped) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  source.start(ignore);
  source.stop();
  screen.bounds = Rect{150, 120, 200, 400};
  EXPECT_FALSE(source.track());
  EXPECT_EQ(screen.running, 0);
}

TEST_F(DesktopUnderWindowSourceTest, followsNothingBeforeItStarted) {
  DesktopUnderWindowSource source(screen, simulator(), {}, 30);
  EXPECT_FALSE(source.track());
}

}  // namespace
}  // namespace lenslark
