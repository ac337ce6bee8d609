#include "config/SourceSpec.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

const SourceSpec desktop{SourceSpec::Desktop{}};
const SourceSpec display{SourceSpec::Display{1}};
const SourceSpec window{SourceSpec::Window{"Maps"}};
const SourceSpec image{SourceSpec::Image{"a"}};
const SourceSpec video{SourceSpec::Video{"b", true}};
const SourceSpec slideshow{SourceSpec::Slideshow{{"c", "d", "c"}, 2}};
const SourceSpec pattern{SourceSpec::Pattern{}};

TEST(SourceSpecTest, isTheDesktopUnlessToldOtherwise) { EXPECT_EQ(SourceSpec(), desktop); }

TEST(SourceSpecTest, namesItsKind) {
  EXPECT_EQ(desktop.kindName(), "desktop");
  EXPECT_EQ(display.kindName(), "display");
  EXPECT_EQ(window.kindName(), "window");
  EXPECT_EQ(image.kindName(), "image");
  EXPECT_EQ(video.kindName(), "video");
  EXPECT_EQ(slideshow.kindName(), "slideshow");
  EXPECT_EQ(pattern.kindName(), "pattern");
}

TEST(SourceSpecTest, listsTheMediaItShows) {
  using Ids = std::vector<std::string>;
  EXPECT_EQ(image.mediaIDs(), Ids{"a"});
  EXPECT_EQ(video.mediaIDs(), Ids{"b"});
  EXPECT_EQ(slideshow.mediaIDs(), (Ids{"c", "d", "c"}));
  for (const SourceSpec& other : {desktop, display, window, pattern}) {
    EXPECT_EQ(other.mediaIDs(), Ids{}) << other.kindName();
  }
}

TEST(SourceSpecTest, needsTheScreenForDesktopDisplayAndWindowOnly) {
  for (const SourceSpec& live : {desktop, display, window}) {
    EXPECT_TRUE(live.capturesScreen()) << live.kindName();
  }
  for (const SourceSpec& other : {image, video, slideshow, pattern}) {
    EXPECT_FALSE(other.capturesScreen()) << other.kindName();
  }
}

TEST(SourceSpecTest, differsByEachPartOfItsPayload) {
  EXPECT_NE(display, SourceSpec{SourceSpec::Display{2}});
  EXPECT_NE(window, SourceSpec{SourceSpec::Window{"maps"}});
  EXPECT_NE(image, SourceSpec{SourceSpec::Image{"b"}});
  EXPECT_NE(video, (SourceSpec{SourceSpec::Video{"b", false}}));
  EXPECT_NE(slideshow, (SourceSpec{SourceSpec::Slideshow{{"c", "c", "d"}, 2}}));
  EXPECT_NE(slideshow, (SourceSpec{SourceSpec::Slideshow{{"c", "d", "c"}, 3}}));
  EXPECT_NE(image, (SourceSpec{SourceSpec::Video{"a", true}}));
}

TEST(SourceSpecTest, takesMinusZeroForZero) {
  EXPECT_EQ((SourceSpec{SourceSpec::Slideshow{{}, 0.0}}),
            (SourceSpec{SourceSpec::Slideshow{{}, -0.0}}));
}

}  // namespace
}  // namespace lenslark
