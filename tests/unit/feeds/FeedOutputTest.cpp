#include "feeds/FeedOutput.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "graphics/Compositor.h"
#include "support/FrameFileCopy.h"
#include "support/NumberedPicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr Pixel black{0, 0, 0, 255};
constexpr Pixel red{0, 0, 255, 255};
constexpr Pixel green{0, 255, 0, 255};
constexpr Pixel blue{255, 0, 0, 255};
constexpr Pixel white{255, 255, 255, 255};
constexpr Pixel grey{100, 100, 100, 255};

/// Blending and scaling round, each to within this many levels.
constexpr int tolerance = 3;

::testing::AssertionResult near(const Pixel& actual, const Pixel& expected) {
  for (std::size_t i = 0; i < actual.size(); ++i) {
    if (std::abs(actual[i] - expected[i]) > tolerance) {
      return ::testing::AssertionFailure() << ::testing::PrintToString(actual) << " is not "
                                           << ::testing::PrintToString(expected);
    }
  }
  return ::testing::AssertionSuccess();
}

/// Upper left red, upper right green, lower left blue, lower right white.
std::shared_ptr<PixelBuffer> quarters(Size size) {
  auto picture = std::make_shared<PixelBuffer>(size, true);
  constexpr Pixel colors[]{red, green, blue, white};
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      setPixel(picture->span(), x, y,
               colors[(x >= size.width / 2 ? 1 : 0) + (y >= size.height / 2 ? 2 : 0)]);
    }
  }
  return picture;
}

/// Counts how often it is drawn.
class CountedFrame final : public Frame {
 public:
  explicit CountedFrame(FramePtr inner) : inner_(std::move(inner)) {}
  Size size() const noexcept override { return inner_->size(); }
  bool opaque() const noexcept override { return inner_->opaque(); }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override {
    ++draws;
    return !broken && inner_->draw(part, target);
  }
  mutable int draws = 0;
  bool broken = false;

 private:
  FramePtr inner_;
};

class FeedOutputTest : public ::testing::Test {
 protected:
  void SetUp() override { output.emplace(path, LLCameraBack, 2048); }

  FrameFileCopy file() const { return FrameFileCopy(path); }
  void deliver(const FramePtr& frame, ContentKind kind = ContentKind::live) {
    output->deliver(frame, kind);
  }
  static OverlaySpec overlay(Anchor anchor, double scale = 0.5, double opacity = 1) {
    return {.media = "m", .anchor = anchor, .scale = scale, .opacity = opacity};
  }

  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  std::optional<FeedOutput> output;
};

TEST_F(FeedOutputTest, aFrameThatFitsPassesUnchanged) {
  const auto picture = numberedPicture({1920, 1080}, 64);
  deliver(picture, ContentKind::video);
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  ASSERT_EQ(shown.size, (Size{1920, 1080}));
  for (int y = 0; y < 1080; ++y) {
    ASSERT_EQ(std::memcmp(shown.row(y), picture->view().row(y), 1920 * 4), 0) << y;
  }
  EXPECT_EQ(copy.header().contentKind, 2U);
}

TEST_F(FeedOutputTest, oddSizesAndAlphaPassUnchanged) {
  deliver(uniformPicture({33, 21}, {1, 2, 3, 4}));
  const FrameFileCopy copy = file();
  EXPECT_EQ(copy.frontFrame().size, (Size{33, 21}));
  EXPECT_EQ(pixelAt(copy.frontFrame(), 32, 20), (Pixel{1, 2, 3, 4}));
}

TEST_F(FeedOutputTest, aFreshFeedHasNoFrame) {
  EXPECT_EQ(file().header().slots[0].width, 0U);
  EXPECT_EQ(file().header().slots[1].width, 0U);
  EXPECT_EQ(file().header().heartbeat, 0U);
}

TEST_F(FeedOutputTest, aFrameBeyondTheCapShrinks) {
  deliver(quarters({4000, 3000}));
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  ASSERT_EQ(shown.size, (Size{2048, 1536}));
  EXPECT_TRUE(near(pixelAt(shown, 10, 10), red));
  EXPECT_TRUE(near(pixelAt(shown, 2040, 10), green));
  EXPECT_TRUE(near(pixelAt(shown, 10, 1530), blue));
  EXPECT_TRUE(near(pixelAt(shown, 2040, 1530), white));
  EXPECT_EQ(pixelAt(shown, 2047, 1535)[3], 255);
}

TEST_F(FeedOutputTest, aCutFrameLosesItsTopRowAndRightColumn) {
  const auto picture = uniformPicture({101, 57}, grey);
  for (int x = 0; x < 101; ++x) setPixel(picture->span(), x, 0, red);
  for (int y = 0; y < 57; ++y) setPixel(picture->span(), 100, y, green);
  for (int y = 0; y < 57; ++y) setPixel(picture->span(), 0, y, blue);
  // An overlay that leaves the corners alone forces even sides.
  output->update({.fill = false, .overlay = overlay(Anchor::center, 0.1)},
                 uniformPicture({4, 4}, white));
  deliver(picture);
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  ASSERT_EQ(shown.size, (Size{100, 56}));
  EXPECT_EQ(pixelAt(shown, 50, 0), grey);
  EXPECT_EQ(pixelAt(shown, 99, 30), grey);
  EXPECT_EQ(pixelAt(shown, 0, 55), blue);
}

// The emulator.

TEST_F(FeedOutputTest, anEmulatorGetsItsCanvasWithBlackBars) {
  output->update({.android = true, .fill = true}, nullptr);
  deliver(quarters({720, 960}));
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  ASSERT_EQ(shown.size, (Size{1280, 960}));
  for (const int y : {0, 480, 959}) {
    EXPECT_EQ(pixelAt(shown, 0, y), black);
    EXPECT_EQ(pixelAt(shown, 279, y), black);
    EXPECT_EQ(pixelAt(shown, 1000, y), black);
    EXPECT_EQ(pixelAt(shown, 1279, y), black);
  }
  EXPECT_EQ(pixelAt(shown, 280, 0), red);
  EXPECT_EQ(pixelAt(shown, 999, 0), green);
  EXPECT_EQ(pixelAt(shown, 280, 959), blue);
  EXPECT_EQ(pixelAt(shown, 999, 959), white);
}

TEST_F(FeedOutputTest, anEmulatorFitsAWidePictureBetweenBars) {
  output->update({.android = true, .fill = false}, nullptr);
  deliver(quarters({1920, 1080}));
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  // 720 x 405 from row 277.
  EXPECT_EQ(pixelAt(shown, 300, 276), black);
  EXPECT_TRUE(near(pixelAt(shown, 300, 278), red));
  EXPECT_TRUE(near(pixelAt(shown, 990, 680), white));
  EXPECT_EQ(pixelAt(shown, 990, 682), black);
  EXPECT_EQ(pixelAt(shown, 279, 400), black);
  EXPECT_EQ(pixelAt(shown, 1000, 400), black);
}

TEST_F(FeedOutputTest, theCanvasIsOpaqueWhateverThePicture) {
  output->update({.android = true, .fill = false}, nullptr);
  deliver(uniformPicture({640, 480}, {10, 20, 30, 40}));
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  for (int y = 0; y < 960; ++y) {
    for (int x = 0; x < 1280; ++x) ASSERT_EQ(pixelAt(shown, x, y)[3], 255) << x << "," << y;
  }
  EXPECT_TRUE(near(pixelAt(shown, 640, 480), {10, 20, 30, 255}));
}

TEST_F(FeedOutputTest, barsAreBlackAgainAfterAnotherStyle) {
  output->update({.android = true, .fill = true}, nullptr);
  deliver(uniformPicture({720, 960}, white));
  deliver(uniformPicture({720, 960}, white));
  output->update({.android = true, .fill = false}, nullptr);
  deliver(uniformPicture({1920, 1080}, white));
  deliver(uniformPicture({1920, 1080}, white));
  for (const std::uint32_t slot : {0U, 1U}) {
    EXPECT_EQ(pixelAt(file().frame(slot), 640, 100), black);
    EXPECT_EQ(pixelAt(file().frame(slot), 640, 900), black);
    EXPECT_TRUE(near(pixelAt(file().frame(slot), 640, 480), white));
  }
}

TEST_F(FeedOutputTest, anEmulatorsDesktopPassesUnchanged) {
  output->update({.android = true, .desktop = true}, nullptr);
  deliver(numberedPicture({411, 913}));
  EXPECT_EQ(file().frontFrame().size, (Size{411, 913}));
}

// Overlays. The frame is 1000 x 500 and fitted: region = frame, S = 500, margin 20.

TEST_F(FeedOutputTest, anOverlayLiesUprightInItsCorner) {
  output->update({.fill = false, .overlay = overlay(Anchor::topLeft, 0.4)}, quarters({200, 100}));
  deliver(uniformPicture({1000, 500}, grey));
  const FrameFileCopy copy = file();
  const PixelView shown = copy.frontFrame();
  ASSERT_EQ(shown.size, (Size{1000, 500}));
  // 200 x 100 at (20, 20).
  EXPECT_EQ(pixelAt(shown, 19, 60), grey);
  EXPECT_EQ(pixelAt(shown, 60, 19), grey);
  EXPECT_EQ(pixelAt(shown, 20, 20), red);
  EXPECT_EQ(pixelAt(shown, 219, 20), green);
  EXPECT_EQ(pixelAt(shown, 20, 119), blue);
  EXPECT_EQ(pixelAt(shown, 219, 119), white);
  EXPECT_EQ(pixelAt(shown, 220, 60), grey);
  EXPECT_EQ(pixelAt(shown, 60, 120), grey);
}

TEST_F(FeedOutputTest, aPlacedOverlayTouchesTheUpperRightCorner) {
  OverlaySpec spec = overlay(Anchor::center, 0.4);
  spec.x = 1;
  spec.y = 0;
  output->update({.fill = false, .overlay = spec}, quarters({200, 100}));
  deliver(uniformPicture({1000, 500}, grey));
  EXPECT_EQ(pixelAt(file().frontFrame(), 999, 0), green);
  EXPECT_EQ(pixelAt(file().frontFrame(), 800, 0), red);
  EXPECT_EQ(pixelAt(file().frontFrame(), 999, 99), white);
  EXPECT_EQ(pixelAt(file().frontFrame(), 999, 100), grey);
  EXPECT_EQ(pixelAt(file().frontFrame(), 799, 0), grey);
}

TEST_F(FeedOutputTest, aFilledCamerasOverlayKeepsToItsMiddle) {
  output->update({.fill = true, .overlay = overlay(Anchor::bottomRight, 0.2)},
                 uniformPicture({100, 100}, red));
  deliver(uniformPicture({1920, 1080}, grey));
  // Region 656.25...1263.75, S = 607.5, side 121.5, margin 24.3: right edge 1239.45, bottom 24.3.
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 1238, 1054), red));
  EXPECT_EQ(pixelAt(file().frontFrame(), 1240, 1054), grey);
  EXPECT_EQ(pixelAt(file().frontFrame(), 1238, 1056), grey);
}

TEST_F(FeedOutputTest, anEmulatorsOverlayKeepsToItsStrip) {
  output->update({.android = true, .fill = true, .overlay = overlay(Anchor::bottomLeft, 0.1)},
                 uniformPicture({72, 72}, red));
  deliver(uniformPicture({720, 960}, grey));
  // S = 720: 72 x 72 with a margin of 28.8 from (280, bottom).
  EXPECT_EQ(pixelAt(file().frontFrame(), 309, 930), red);
  EXPECT_EQ(pixelAt(file().frontFrame(), 308, 930), grey);
  EXPECT_EQ(pixelAt(file().frontFrame(), 309, 932), grey);
}

TEST_F(FeedOutputTest, halfAnOverlayShowsWhatLiesUnderIt) {
  output->update({.fill = false, .overlay = overlay(Anchor::center, 1, 0.5)},
                 uniformPicture({100, 100}, red));
  deliver(uniformPicture({400, 400}, {200, 100, 0, 255}));
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), {100, 50, 128, 255}));
  EXPECT_EQ(pixelAt(file().frontFrame(), 200, 200)[3], 255);
}

TEST_F(FeedOutputTest, aWholeOverlayHidesWhatLiesUnderIt) {
  for (const double opacity : {1.0, 3.0}) {
    output->update({.fill = false, .overlay = overlay(Anchor::center, 1, opacity)},
                   uniformPicture({100, 100}, red));
    deliver(uniformPicture({400, 400}, {200, 100, 0, 255}));
    EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), red));
  }
}

TEST_F(FeedOutputTest, anInvisibleOverlayChangesNothing) {
  for (const double opacity : {0.0, -1.0}) {
    output->update({.fill = false, .overlay = overlay(Anchor::center, 1, opacity)},
                   uniformPicture({100, 100}, red));
    deliver(uniformPicture({400, 400}, grey));
    EXPECT_EQ(pixelAt(file().frontFrame(), 200, 200), grey);
  }
}

TEST_F(FeedOutputTest, anOverlayOnATranslucentPictureComposesTheAlpha) {
  output->update({.fill = false, .overlay = overlay(Anchor::center, 1, 0.5)},
                 uniformPicture({100, 100}, red));
  deliver(uniformPicture({400, 400}, {0, 0, 0, 0}));
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), {0, 0, 128, 128}));
}

TEST_F(FeedOutputTest, anOverlayWithoutItsPictureIsNone) {
  output->update({.fill = false, .overlay = overlay(Anchor::center)}, nullptr);
  deliver(numberedPicture({33, 21}));
  EXPECT_EQ(file().frontFrame().size, (Size{33, 21}));
}

TEST_F(FeedOutputTest, anOverlayFollowsTheSizeOfTheFrames) {
  output->update({.fill = false, .overlay = overlay(Anchor::center, 0.5)},
                 uniformPicture({100, 100}, red));
  deliver(uniformPicture({400, 400}, grey));
  deliver(uniformPicture({100, 100}, grey));
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 26, 26), red));
  EXPECT_EQ(pixelAt(file().frontFrame(), 24, 24), grey);
  EXPECT_EQ(pixelAt(file().frontFrame(), 76, 76), grey);
}

// Changes of style.

TEST_F(FeedOutputTest, anotherOpacityShowsTheLastStillPictureAgain) {
  const auto picture = uniformPicture({100, 100}, red);
  output->update({.fill = false, .overlay = overlay(Anchor::center, 1, 1)}, picture);
  deliver(uniformPicture({400, 400}, {200, 0, 0, 255}), ContentKind::still);
  output->update({.fill = false, .overlay = overlay(Anchor::center, 1, 0.5)}, picture);
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), {100, 0, 128, 255}));
  EXPECT_EQ(file().header().isStill, 1U);
}

TEST_F(FeedOutputTest, overlaysNeverPileUp) {
  const auto picture = uniformPicture({100, 100}, red);
  deliver(uniformPicture({400, 400}, {200, 0, 0, 255}), ContentKind::still);
  for (int i = 0; i < 6; ++i) {
    const double opacity = i % 2 == 0 ? 0.5 : 0.25;
    output->update({.fill = false, .overlay = overlay(Anchor::center, 1, opacity)}, picture);
  }
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), {150, 0, 64, 255}));
}

TEST_F(FeedOutputTest, anEqualStyleWritesNothing) {
  const auto picture = uniformPicture({100, 100}, red);
  const FeedOutput::Style style{.fill = false, .overlay = overlay(Anchor::center)};
  output->update(style, picture);
  deliver(uniformPicture({400, 400}, grey), ContentKind::still);
  const std::uint64_t before = file().header().slots[1].seq;
  output->update(style, picture);
  EXPECT_EQ(file().header().slots[1].seq, before);
  EXPECT_EQ(file().header().frontSlot, 1U);
}

TEST_F(FeedOutputTest, anotherPictureOfTheSameStyleIsShown) {
  const FeedOutput::Style style{.fill = false, .overlay = overlay(Anchor::center)};
  output->update(style, uniformPicture({100, 100}, red));
  deliver(uniformPicture({400, 400}, grey), ContentKind::still);
  output->update(style, uniformPicture({100, 100}, blue));
  EXPECT_TRUE(near(pixelAt(file().frontFrame(), 200, 200), blue));
}

TEST_F(FeedOutputTest, aStyleBeforeTheFirstFrameWritesNothing) {
  output->update({.android = true}, nullptr);
  EXPECT_EQ(file().header().heartbeat, 0U);
}

TEST_F(FeedOutputTest, aPictureIsDrawnOncePerFrame) {
  const auto frame = std::make_shared<CountedFrame>(quarters({1920, 1080}));
  output->update({.android = true, .overlay = overlay(Anchor::center)},
                 uniformPicture({100, 100}, red));
  deliver(frame, ContentKind::still);
  EXPECT_EQ(frame->draws, 1);
}

// Failures.

TEST_F(FeedOutputTest, aFrameThatCannotBeDrawnLeavesTheLastOne) {
  deliver(uniformPicture({40, 40}, grey));
  const auto broken = std::make_shared<CountedFrame>(uniformPicture({40, 40}, red));
  broken->broken = true;
  deliver(broken);
  EXPECT_EQ(pixelAt(file().frontFrame(), 20, 20), grey);
}

TEST_F(FeedOutputTest, whatCannotBeComposedIsWrittenAsItIs) {
  output->update({.fill = false, .overlay = overlay(Anchor::center)},
                 uniformPicture({100, 100}, red));
  deliver(numberedPicture({1, 300}));
  EXPECT_EQ(file().frontFrame().size, (Size{1, 300}));
  EXPECT_EQ(pixelAt(file().frontFrame(), 0, 299), numberedPixel(0, 299));
}

TEST_F(FeedOutputTest, whatIsTooLargeEvenThenIsDropped) {
  deliver(uniformPicture({40, 40}, grey));
  deliver(std::make_shared<PixelBuffer>(Size{1, 5'000'000}));
  EXPECT_EQ(file().frontFrame().size, (Size{40, 40}));
}

TEST_F(FeedOutputTest, noFrameIsNoFrame) {
  deliver(nullptr);
  EXPECT_EQ(file().header().heartbeat, 0U);
}

TEST_F(FeedOutputTest, aFileThatCannotBeMadeIsAnError) {
  std::filesystem::create_directory(directory / "taken");
  EXPECT_THROW(FeedOutput((directory / "taken").string(), LLCameraBack, 64), std::system_error);
}

TEST_F(FeedOutputTest, knowsWhenItsFileIsGone) {
  EXPECT_TRUE(output->stillInPlace());
  std::filesystem::remove(path);
  EXPECT_FALSE(output->stillInPlace());
}

TEST_F(FeedOutputTest, theSceneModeAndHeartbeatReachTheFile) {
  output->setSceneMode(LLSceneModeFill);
  output->heartbeat();
  EXPECT_EQ(file().header().sceneMode, 1U);
  EXPECT_NE(file().header().heartbeat, 0U);
  EXPECT_EQ(output->path(), path);
}

}  // namespace
}  // namespace lenslark
