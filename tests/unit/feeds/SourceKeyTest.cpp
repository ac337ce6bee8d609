#include "feeds/SourceKey.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

const MediaFiles files{{"sha256:a", "/library/items/a.png"},
                       {"sha256:b", "/library/items/b.jpg"},
                       {"sha256:c", "/library/items/c.mov"}};

ConnectedDevice phone(std::optional<std::uint32_t> window) {
  ConnectedDevice device{DeviceKey::ios("U"), "iPhone", ConnectedDevice::Simulator{"U"}, {}, {}};
  if (window) device.window = DeviceWindow{DeviceWindow::IosSimulator{"U"}, "iPhone", *window};
  return device;
}

std::string key(SourceSpec spec, int fps = 30) {
  const auto device = phone(77);
  const auto request = sourceRequest(spec, &device, fps, files);
  return request ? request->key : "none";
}

TEST(SourceKeyTest, namesWhatIsShownAndHowFast) {
  EXPECT_EQ(key({SourceSpec::Desktop{}}), "desktop:77:30");
  EXPECT_EQ(key({SourceSpec::Display{2}}, 15), "display:2:15");
  EXPECT_EQ(key({SourceSpec::Window{"Safari: a b"}}), "window:Safari: a b:30");
  EXPECT_EQ(key({SourceSpec::Image{"sha256:a"}}), "image:/library/items/a.png");
  EXPECT_EQ(key({SourceSpec::Video{"sha256:c", true}}), "video:/library/items/c.mov:true:30");
  EXPECT_EQ(key({SourceSpec::Video{"sha256:c", false}}, 24), "video:/library/items/c.mov:false:24");
  EXPECT_EQ(key({SourceSpec::Slideshow{{"sha256:a", "sha256:b"}, 3}}),
            "slideshow:/library/items/a.png,/library/items/b.jpg:3");
  EXPECT_EQ(key({SourceSpec::Slideshow{{"sha256:a"}, 0.25}}),
            "slideshow:/library/items/a.png:0.25");
  EXPECT_EQ(key({SourceSpec::Pattern{}}, 60), "pattern:60");
}

TEST(SourceKeyTest, showsALargeWindowNumberAsUnsigned) {
  const auto device = phone(4294967295U);
  EXPECT_EQ(sourceRequest({SourceSpec::Desktop{}}, &device, 30, {})->key, "desktop:4294967295:30");
}

TEST(SourceKeyTest, thereIsNoDesktopWithoutADeviceOrItsWindow) {
  const auto device = phone(std::nullopt);
  EXPECT_FALSE(sourceRequest({SourceSpec::Desktop{}}, nullptr, 30, files));
  EXPECT_FALSE(sourceRequest({SourceSpec::Desktop{}}, &device, 30, files));
}

TEST(SourceKeyTest, thereIsNoSlideshowWithoutPictures) {
  EXPECT_EQ(key({SourceSpec::Slideshow{{}, 3}}), "none");
}

TEST(SourceKeyTest, everythingElseNeedsNoDevice) {
  EXPECT_EQ(sourceRequest({SourceSpec::Pattern{}}, nullptr, 30, files)->key, "pattern:30");
}

TEST(SourceKeyTest, describesTheSourceInFull) {
  const auto video = sourceRequest({SourceSpec::Video{"sha256:c", false}}, nullptr, 24, files);
  const auto& description = std::get<SourceDescription::Video>(video->source.value);
  EXPECT_EQ(description.file, "/library/items/c.mov");
  EXPECT_FALSE(description.loop);
  EXPECT_EQ(description.fps, 24);
}

TEST(SourceKeyTest, tellsWhichMediaIsShown) {
  const auto show = sourceRequest({SourceSpec::Slideshow{{"sha256:b", "sha256:a", "sha256:b"}, 3}},
                                  nullptr, 30, files);
  EXPECT_EQ(show->mediaIDs, (std::set<std::string>{"sha256:a", "sha256:b"}));
}

TEST(SourceKeyTest, whatIsNotInTheLibraryBecomesASourceThatSaysSo) {
  for (const auto& spec :
       {SourceSpec{SourceSpec::Image{"sha256:gone"}}, SourceSpec{SourceSpec::Video{"sha256:gone"}},
        SourceSpec{SourceSpec::Slideshow{{"sha256:gone"}, 3}}}) {
    const auto request = sourceRequest(spec, nullptr, 30, files);
    ASSERT_TRUE(request);
    const auto& reason = std::get<SourceDescription::Unavailable>(request->source.value).reason;
    EXPECT_NE(reason.find("sha256:gone"), std::string::npos);
    EXPECT_TRUE(request->mediaIDs.empty());
  }
}

TEST(SourceKeyTest, aLibraryThatCannotBeReadIsToldAsThatAndNotAsAnItemThatIsMissing) {
  const SourceSpec spec{SourceSpec::Image{"sha256:gone"}};
  const auto request = sourceRequest(spec, nullptr, 30, files, "index.json: Too many open files");
  ASSERT_TRUE(request);
  const auto& reason = std::get<SourceDescription::Unavailable>(request->source.value).reason;
  EXPECT_EQ(reason, "index.json: Too many open files");
  // Once it can be read, what is missing is another source.
  EXPECT_NE(request->key, sourceRequest(spec, nullptr, 30, files)->key);
}

TEST(SourceKeyTest, aSlideshowKeepsThePlaceOfAMissingPicture) {
  const auto request = sourceRequest(
      {SourceSpec::Slideshow{{"sha256:a", "../../etc/passwd", "sha256:b"}, 3}}, nullptr, 30, files);
  const auto& show = std::get<SourceDescription::Slideshow>(request->source.value);
  ASSERT_EQ(show.files.size(), 3U);
  EXPECT_EQ(show.files[0], "/library/items/a.png");
  EXPECT_TRUE(show.files[1].empty());
  EXPECT_EQ(show.files[2], "/library/items/b.jpg");
}

TEST(SourceKeyTest, anIdNeverBecomesAPath) {
  const auto request = sourceRequest({SourceSpec::Image{"../../etc/passwd"}}, nullptr, 30, files);
  EXPECT_TRUE(std::holds_alternative<SourceDescription::Unavailable>(request->source.value));
}

TEST(SourceKeyTest, onlyScreensAreCaptured) {
  const auto captures = [](const SourceSpec& spec) {
    const auto device = phone(1);
    return sourceRequest(spec, &device, 30, files)->source.capturesScreen();
  };
  EXPECT_TRUE(captures({SourceSpec::Desktop{}}));
  EXPECT_TRUE(captures({SourceSpec::Display{}}));
  EXPECT_TRUE(captures({SourceSpec::Window{"x"}}));
  EXPECT_FALSE(captures({SourceSpec::Image{"sha256:a"}}));
  EXPECT_FALSE(captures({SourceSpec::Pattern{}}));
}

}  // namespace
}  // namespace lenslark
