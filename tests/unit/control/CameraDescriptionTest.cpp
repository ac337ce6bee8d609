#include "control/CameraDescription.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/Json.h"
#include "support/Devices.h"

namespace lenslark {
namespace {

using nlohmann::json;

/// A library that holds one picture.
std::optional<std::string> names(std::string_view id) {
  if (id == "sha256:a") return "card.png";
  return std::nullopt;
}

json described(const SourceSpec& source) { return CameraDescription::describe(source, names); }

std::string summed(SourceSpec source, std::optional<OverlaySpec> overlay = {}) {
  return CameraDescription::summary({Scope::global(), std::move(source), std::move(overlay), {}},
                                    names);
}

const OverlaySpec logo{.media = "sha256:a", .anchor = Anchor::topLeft, .scale = 0.25, .opacity = 1};

TEST(DescribeTest, desktopAndPatternHaveTheirKindOnly) {
  EXPECT_EQ(described({SourceSpec::Desktop{}}), (json{{"kind", "desktop"}}));
  EXPECT_EQ(described({SourceSpec::Pattern{}}), (json{{"kind", "pattern"}}));
}

TEST(DescribeTest, aDisplayHasItsIndex) {
  EXPECT_EQ(described({SourceSpec::Display{2}}), (json{{"kind", "display"}, {"displayIndex", 2}}));
}

TEST(DescribeTest, aWindowHasItsText) {
  EXPECT_EQ(described({SourceSpec::Window{"Maps"}}),
            (json{{"kind", "window"}, {"windowMatch", "Maps"}}));
}

TEST(DescribeTest, anImageHasItsIdAndName) {
  EXPECT_EQ(described({SourceSpec::Image{"sha256:a"}}),
            (json{{"kind", "image"}, {"mediaId", "sha256:a"}, {"name", "card.png"}}));
}

TEST(DescribeTest, mediaThatAreGoneHaveNoName) {
  EXPECT_EQ(described({SourceSpec::Image{"sha256:b"}}),
            (json{{"kind", "image"}, {"mediaId", "sha256:b"}}));
}

TEST(DescribeTest, aVideoSaysWhetherItLoops) {
  EXPECT_EQ(
      described({SourceSpec::Video{"sha256:a", false}}),
      (json{{"kind", "video"}, {"mediaId", "sha256:a"}, {"name", "card.png"}, {"loop", false}}));
}

TEST(DescribeTest, aSlideshowHasItsIdsAndInterval) {
  EXPECT_EQ(described({SourceSpec::Slideshow{{"sha256:a", "sha256:b"}, 2.5}}),
            (json{{"kind", "slideshow"},
                  {"mediaIds", json::array({"sha256:a", "sha256:b"})},
                  {"intervalSec", 2.5}}));
}

TEST(DescribeTest, wholeNumbersHaveNoDecimals) {
  EXPECT_EQ(Json::compact(described({SourceSpec::Slideshow{{}, 3}})),
            R"({"intervalSec":3,"kind":"slideshow","mediaIds":[]})");
}

TEST(DescribeTest, aGlobalAssignmentHasNoDevice) {
  EXPECT_EQ(CameraDescription::describe(Assignment{}, names),
            (json{{"kind", "desktop"}, {"scope", "global"}}));
}

TEST(DescribeTest, aDeviceAssignmentHasItsKey) {
  const Assignment assignment{
      Scope::device(DeviceKey::android("Pixel")), {SourceSpec::Pattern{}}, {}, {}};
  EXPECT_EQ(CameraDescription::describe(assignment, names),
            (json{{"kind", "pattern"}, {"scope", "device"}, {"deviceKey", "android:Pixel"}}));
}

TEST(DescribeTest, aCameraAssignmentHasKeyAndCamera) {
  const Assignment assignment{
      Scope::camera(DeviceKey::ios("U"), CameraPosition::front), {SourceSpec::Pattern{}}, {}, {}};
  EXPECT_EQ(
      CameraDescription::describe(assignment, names),
      (json{
          {"kind", "pattern"}, {"scope", "camera"}, {"deviceKey", "ios:U"}, {"camera", "front"}}));
}

TEST(DescribeTest, theDateIsLeftOut) {
  const Assignment assignment{{}, {}, {}, Clock::now()};
  EXPECT_FALSE(CameraDescription::describe(assignment, names).contains("updatedAt"));
}

TEST(DescribeTest, anOverlayIsDescribedInside) {
  const Assignment assignment{{}, {}, logo, {}};
  EXPECT_EQ(CameraDescription::describe(assignment, names)["overlay"],
            (json{{"mediaId", "sha256:a"},
                  {"name", "card.png"},
                  {"anchor", "topLeft"},
                  {"scale", 0.25},
                  {"opacity", 1}}));
}

TEST(DescribeTest, anOverlaysPositionIsThereWhenSet) {
  OverlaySpec placed = logo;
  placed.media = "gone";
  placed.x = 0.5;
  placed.y = 0;
  EXPECT_EQ(Json::compact(
                CameraDescription::describe(Assignment{{}, {}, placed, {}}, names).at("overlay")),
            R"({"anchor":"topLeft","mediaId":"gone","opacity":1,"scale":0.25,"x":0.5,"y":0})");
}

TEST(SummaryTest, saysWhatACameraShows) {
  EXPECT_EQ(summed({SourceSpec::Desktop{}}), "desktop under the window");
  EXPECT_EQ(summed({SourceSpec::Pattern{}}), "test pattern");
  EXPECT_EQ(summed({SourceSpec::Display{0}}), "display 0");
  EXPECT_EQ(summed({SourceSpec::Window{"Safari Tech Preview"}}), "window \"Safari Tech Preview\"");
  EXPECT_EQ(summed({SourceSpec::Image{"sha256:a"}}), "image card.png");
  EXPECT_EQ(summed({SourceSpec::Image{"sha256:b"}}), "image sha256:b");
  EXPECT_EQ(summed({SourceSpec::Video{"sha256:a", true}}), "video card.png");
  EXPECT_EQ(summed({SourceSpec::Video{"sha256:a", false}}), "video card.png (once)");
}

TEST(SummaryTest, aSlideshowsIntervalIsItsShortestText) {
  EXPECT_EQ(summed({SourceSpec::Slideshow{{"a", "b", "c"}, 3}}), "slideshow of 3 images every 3s");
  EXPECT_EQ(summed({SourceSpec::Slideshow{{"a"}, 0.75}}), "slideshow of 1 images every 0.75s");
  EXPECT_EQ(summed({SourceSpec::Slideshow{{"a"}, 100000}}), "slideshow of 1 images every 100000s");
  EXPECT_EQ(summed({SourceSpec::Slideshow{{"a"}, 0.0001}}), "slideshow of 1 images every 0.0001s");
  EXPECT_EQ(summed({SourceSpec::Slideshow{{"a"}, -0.0}}), "slideshow of 1 images every 0s");
}

TEST(SummaryTest, anOverlayIsAppended) {
  EXPECT_EQ(summed({SourceSpec::Video{"x", false}}, logo), "video x (once) + overlay card.png");
  EXPECT_EQ(summed({SourceSpec::Pattern{}}, OverlaySpec{.media = "gone"}),
            "test pattern + overlay gone");
}

TEST(MediaJSONTest, describesAPicture) {
  const MediaItem item{.id = "sha256:a",
                       .kind = MediaItem::Kind::image,
                       .name = "card.png",
                       .file = "a.png",
                       .width = 640,
                       .height = 480,
                       .duration = {},
                       .pinned = true,
                       .addedAt = {},
                       .lastUsedAt = {}};
  EXPECT_EQ(CameraDescription::mediaJSON(item), (json{{"id", "sha256:a"},
                                                      {"name", "card.png"},
                                                      {"kind", "image"},
                                                      {"width", 640},
                                                      {"height", 480},
                                                      {"pinned", true}}));
}

TEST(MediaJSONTest, aFilmHasItsDuration) {
  const MediaItem item{.id = "sha256:a",
                       .kind = MediaItem::Kind::video,
                       .name = "c.mp4",
                       .file = "a.mp4",
                       .width = 2,
                       .height = 2,
                       .duration = 12.5,
                       .pinned = false,
                       .addedAt = {},
                       .lastUsedAt = {}};
  const json described = CameraDescription::mediaJSON(item);
  EXPECT_EQ(described.at("kind"), "video");
  EXPECT_EQ(described.at("durationSec"), 12.5);
}

const DeviceKey phone = DeviceKey::ios("U");

Assignment pattern(Scope scope) { return {std::move(scope), {SourceSpec::Pattern{}}, {}, {}}; }

TEST(ResolveTest, withoutSettingsItIsTheDefault) {
  const auto resolved = CameraDescription::resolve({}, phone, CameraPosition::back);
  EXPECT_EQ(resolved.inheritedFrom, "default");
  EXPECT_TRUE(resolved.assignment.source.is<SourceSpec::Desktop>());
}

TEST(ResolveTest, namesTheScopeThatWins) {
  ConfigFile config;
  config.set(pattern(Scope::global()));
  EXPECT_EQ(CameraDescription::resolve(config, phone, CameraPosition::back).inheritedFrom,
            "global");
  config.set(pattern(Scope::device(phone)));
  EXPECT_EQ(CameraDescription::resolve(config, phone, CameraPosition::back).inheritedFrom,
            "device");
  config.set(pattern(Scope::camera(phone, CameraPosition::front)));
  EXPECT_EQ(CameraDescription::resolve(config, phone, CameraPosition::front).inheritedFrom,
            "camera");
  EXPECT_EQ(CameraDescription::resolve(config, phone, CameraPosition::back).inheritedFrom,
            "device");
}

TEST(ResolveTest, aStoredDesktopIsNotTheDefault) {
  ConfigFile config;
  config.set(Assignment{});
  EXPECT_EQ(CameraDescription::resolve(config, phone, CameraPosition::back).inheritedFrom,
            "global");
}

TEST(DevicesJSONTest, aSimulatorHasTwoCamerasAnEmulatorOne) {
  ConfigFile config;
  config.set(pattern(Scope::camera(phone, CameraPosition::front)));
  const json devices = CameraDescription::devicesJSON(
      {simulator("U", "iPhone"), emulator("Pixel", 42)}, config, names);
  EXPECT_EQ(devices, json::parse(R"([
    {"key": "ios:U", "name": "iPhone", "platform": "iOS", "connected": true, "cameras": [
      {"camera": "back", "inheritedFrom": "default", "kind": "desktop", "scope": "global"},
      {"camera": "front", "inheritedFrom": "camera", "kind": "pattern", "scope": "camera",
       "deviceKey": "ios:U"}]},
    {"key": "android:Pixel", "name": "Pixel", "platform": "Android", "connected": true, "cameras": [
      {"camera": "back", "inheritedFrom": "default", "kind": "desktop", "scope": "global"}]}])"));
}

TEST(DevicesJSONTest, rememberedDevicesFollowWithoutCameras) {
  ConfigFile config;
  config.knownDevices = {{DeviceKey::ios("U"), "iPhone", {}},
                         {DeviceKey::android("Old"), "Old", {}}};
  const json devices = CameraDescription::devicesJSON({simulator("U", "iPhone")}, config, names);
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(
      devices[1],
      (json{
          {"key", "android:Old"}, {"name", "Old"}, {"platform", "Android"}, {"connected", false}}));
}

TEST(DevicesJSONTest, nothingIsAnEmptyList) {
  EXPECT_EQ(CameraDescription::devicesJSON({}, {}, names), json::array());
}

}  // namespace
}  // namespace lenslark
