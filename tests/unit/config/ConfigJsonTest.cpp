#include "config/ConfigJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "base/Json.h"

namespace lenslark {
namespace {

using nlohmann::json;

const Date date{std::chrono::sys_days(std::chrono::year(2025) / 5 / 1) + std::chrono::hours(9) +
                std::chrono::minutes(30)};
const DeviceKey phone = DeviceKey::ios("5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F70");

ConfigFile filled() {
  ConfigFile config;
  config.set({.scope = Scope::global(),
              .source = {SourceSpec::Image{"sha256:3f"}},
              .overlay = {},
              .updatedAt = date});
  config.set({.scope = Scope::camera(phone, CameraPosition::front),
              .source = {SourceSpec::Slideshow{{"sha256:a1", "sha256:b2"}, 3}},
              .overlay = OverlaySpec{.media = "sha256:77"},
              .updatedAt = date});
  config.knownDevices = {{phone, "iPhone 16 Pro", date}};
  return config;
}

constexpr const char* filledText = R"({
  "assignments": [
    {
      "scope": {
        "kind": "global"
      },
      "source": {
        "kind": "image",
        "mediaId": "sha256:3f"
      },
      "updatedAt": "2025-05-01T09:30:00Z"
    },
    {
      "overlay": {
        "anchor": "bottomRight",
        "mediaId": "sha256:77",
        "opacity": 1,
        "scale": 0.25
      },
      "scope": {
        "camera": "front",
        "deviceKey": "ios:5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F70",
        "kind": "camera"
      },
      "source": {
        "intervalSec": 3,
        "kind": "slideshow",
        "mediaIds": [
          "sha256:a1",
          "sha256:b2"
        ]
      },
      "updatedAt": "2025-05-01T09:30:00Z"
    }
  ],
  "knownDevices": [
    {
      "deviceKey": "ios:5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F70",
      "lastSeen": "2025-05-01T09:30:00Z",
      "name": "iPhone 16 Pro"
    }
  ],
  "schemaVersion": 1,
  "settings": {
    "autoInjectSimulators": true,
    "fill": true,
    "fps": 30
  }
})";

/// The message with which reading fails.
template <typename Body>
std::string failure(Body&& body) {
  try {
    body();
  } catch (const JsonError& error) {
    return error.what();
  }
  ADD_FAILURE() << "did not fail";
  return {};
}

std::string failureOfFile(const json& root) {
  return failure([&] { ConfigJson::read(root.dump()); });
}

SourceSpec source(const char* text) { return ConfigJson::decodeSource(json::parse(text)); }

TEST(ConfigJsonTest, writesSortedIndentedAndWithoutWhatIsAbsent) {
  EXPECT_EQ(ConfigJson::write(filled()), filledText);
}

TEST(ConfigJsonTest, readsWhatItWrote) { EXPECT_EQ(ConfigJson::read(filledText), filled()); }

TEST(ConfigJsonTest, readsBackEveryKindOfSource) {
  for (const SourceSpec& spec :
       {SourceSpec{SourceSpec::Desktop{}}, SourceSpec{SourceSpec::Display{-3}},
        SourceSpec{SourceSpec::Window{"\"Söhne\" / \x01"}}, SourceSpec{SourceSpec::Image{""}},
        SourceSpec{SourceSpec::Video{"m", false}}, SourceSpec{SourceSpec::Video{"m", true}},
        SourceSpec{SourceSpec::Slideshow{{}, 0.1}}, SourceSpec{SourceSpec::Slideshow{{"a"}, 1e300}},
        SourceSpec{SourceSpec::Pattern{}}}) {
    EXPECT_EQ(ConfigJson::decodeSource(ConfigJson::encode(spec)), spec) << spec.kindName();
  }
}

TEST(ConfigJsonTest, writesNothingMoreThanASourceHolds) {
  EXPECT_EQ(ConfigJson::encode(SourceSpec{SourceSpec::Desktop{}}),
            json::parse(R"({"kind":"desktop"})"));
  EXPECT_EQ(ConfigJson::encode(SourceSpec{SourceSpec::Display{2}}),
            json::parse(R"({"kind":"display","displayIndex":2})"));
  EXPECT_EQ(ConfigJson::encode(SourceSpec{SourceSpec::Window{"w"}}),
            json::parse(R"({"kind":"window","windowMatch":"w"})"));
  EXPECT_EQ(ConfigJson::encode(SourceSpec{SourceSpec::Video{"m", false}}),
            json::parse(R"({"kind":"video","mediaId":"m","loop":false})"));
}

TEST(ConfigJsonTest, readsBackEveryKindOfScope) {
  for (const Scope& scope : {Scope::global(), Scope::device(DeviceKey::android("Pixel_8_API_35")),
                             Scope::camera(phone, CameraPosition::front)}) {
    EXPECT_EQ(ConfigJson::decodeScope(ConfigJson::encode(scope)), scope) << scope.description();
  }
}

TEST(ConfigJsonTest, takesUnknownScopesForTheGlobalOne) {
  EXPECT_EQ(ConfigJson::decodeScope(json::parse(R"({"kind":"planet"})")), Scope::global());
  EXPECT_EQ(ConfigJson::decodeScope(json::parse(R"({"kind":7,"deviceKey":"web:1"})")),
            Scope::global());
}

TEST(ConfigJsonTest, takesUnknownSourcesForTheDesktop) {
  EXPECT_EQ(source(R"({"kind":"hologram"})"), SourceSpec{SourceSpec::Desktop{}});
  EXPECT_EQ(source(R"({"kind":["image"]})"), SourceSpec{SourceSpec::Desktop{}});
}

TEST(ConfigJsonTest, fillsInWhatASourceMayLeaveOut) {
  EXPECT_EQ(source(R"({"kind":"display"})"), SourceSpec{SourceSpec::Display{0}});
  EXPECT_EQ(source(R"({"kind":"video","mediaId":"m"})"),
            (SourceSpec{SourceSpec::Video{"m", true}}));
  EXPECT_EQ(source(R"({"kind":"slideshow","mediaIds":["m"]})"),
            (SourceSpec{SourceSpec::Slideshow{{"m"}, 3}}));
}

TEST(ConfigJsonTest, demandsWhatASourceCannotDoWithout) {
  EXPECT_EQ(failure([] { source(R"({})"); }), "\"kind\" is missing");
  EXPECT_EQ(failure([] { source(R"({"kind":"window"})"); }), "\"windowMatch\" is missing");
  EXPECT_EQ(failure([] { source(R"({"kind":"image"})"); }), "\"mediaId\" is missing");
  EXPECT_EQ(failure([] { source(R"({"kind":"video","loop":true})"); }), "\"mediaId\" is missing");
  EXPECT_EQ(failure([] { source(R"({"kind":"slideshow"})"); }), "\"mediaIds\" is missing");
}

TEST(ConfigJsonTest, refusesPayloadsOfTheWrongType) {
  for (const char* text :
       {R"({"kind":"display","displayIndex":"1"})", R"({"kind":"display","displayIndex":1.5})",
        R"({"kind":"display","displayIndex":9223372036854775808})",
        R"({"kind":"display","displayIndex":1e99})", R"({"kind":"window","windowMatch":5})",
        R"({"kind":"image","mediaId":["m"]})", R"({"kind":"video","mediaId":"m","loop":1})",
        R"({"kind":"slideshow","mediaIds":"m"})", R"({"kind":"slideshow","mediaIds":["m",1]})",
        R"({"kind":"slideshow","mediaIds":["m"],"intervalSec":"3"})", R"("desktop")", R"(null)",
        R"([])"}) {
    EXPECT_THROW(source(text), JsonError) << text;
  }
}

TEST(ConfigJsonTest, takesWholeNumbersHoweverTheyAreWritten) {
  EXPECT_EQ(source(R"({"kind":"display","displayIndex":2.0})"), SourceSpec{SourceSpec::Display{2}});
}

TEST(ConfigJsonTest, keepsLargeNumbersAsTheyAre) {
  json root = json::parse(filledText);
  root["schemaVersion"] = 3000000000;
  root["settings"]["fps"] = 3000000000;
  root["assignments"][0]["source"] = {{"kind", "display"}, {"displayIndex", 3000000000}};
  EXPECT_EQ(json::parse(ConfigJson::write(ConfigJson::read(root.dump()))), root);
}

TEST(ConfigJsonTest, quotesADeviceKeyThatDoesNotParse) {
  EXPECT_EQ(failure([] { ConfigJson::decodeDeviceKey(json("web:123")); }),
            "bad device key web:123");
  EXPECT_EQ(failure([] {
              ConfigJson::decodeScope(json::parse(R"({"kind":"device","deviceKey":"ios:"})"));
            }),
            "bad device key ios:");
}

TEST(ConfigJsonTest, demandsTheDeviceAndCameraOfAScope) {
  EXPECT_THROW(ConfigJson::decodeScope(json::parse(R"({"kind":"device"})")), JsonError);
  EXPECT_THROW(ConfigJson::decodeScope(json::parse(R"({"kind":"camera","deviceKey":"ios:A"})")),
               JsonError);
  EXPECT_THROW(ConfigJson::decodeScope(
                   json::parse(R"({"kind":"camera","deviceKey":"ios:A","camera":"side"})")),
               JsonError);
}

TEST(ConfigJsonTest, keepsOverlayValuesAsTheyWereRead) {
  const OverlaySpec overlay = ConfigJson::decodeOverlay(
      json::parse(R"({"mediaId":"m","anchor":"top","scale":9,"opacity":-1,"x":0.5,"y":2})"));
  EXPECT_EQ(overlay, (OverlaySpec{"m", Anchor::top, 9, -1, 0.5, 2}));
}

TEST(ConfigJsonTest, demandsEachRequiredFieldOfAnOverlay) {
  const json complete = json::parse(R"({"mediaId":"m","anchor":"top","scale":0.5,"opacity":1})");
  EXPECT_NO_THROW(ConfigJson::decodeOverlay(complete));
  for (const auto& [key, value] : complete.items()) {
    json partial = complete;
    partial.erase(key);
    EXPECT_EQ(failure([&] { ConfigJson::decodeOverlay(partial); }), "\"" + key + "\" is missing");
  }
}

TEST(ConfigJsonTest, refusesAnAnchorThatIsNotARawValue) {
  EXPECT_EQ(failure([] {
              ConfigJson::decodeOverlay(
                  json::parse(R"({"mediaId":"m","anchor":"top-left","scale":1,"opacity":1})"));
            }),
            "bad anchor top-left");
}

TEST(ConfigJsonTest, demandsAllFourPartsOfTheFile) {
  const json complete = json::parse(filledText);
  for (const auto& [key, value] : complete.items()) {
    json partial = complete;
    partial.erase(key);
    EXPECT_EQ(failureOfFile(partial), "\"" + key + "\" is missing");
  }
}

TEST(ConfigJsonTest, demandsEverySetting) {
  for (const char* key : {"fill", "fps", "autoInjectSimulators"}) {
    json partial = json::parse(filledText);
    partial["settings"].erase(key);
    EXPECT_EQ(failureOfFile(partial), "\"" + std::string(key) + "\" is missing");
  }
}

TEST(ConfigJsonTest, demandsEveryFieldOfAKnownDevice) {
  for (const char* key : {"deviceKey", "name", "lastSeen"}) {
    json partial = json::parse(filledText);
    partial["knownDevices"][0].erase(key);
    EXPECT_EQ(failureOfFile(partial), "\"" + std::string(key) + "\" is missing");
  }
}

TEST(ConfigJsonTest, refusesMalformedDates) {
  for (const char* text : {"", "yesterday", "2025-05-01", "2025-13-01T00:00:00Z"}) {
    json root = json::parse(filledText);
    root["knownDevices"][0]["lastSeen"] = text;
    EXPECT_EQ(failureOfFile(root), "\"lastSeen\" is not an ISO 8601 date") << text;
  }
}

TEST(ConfigJsonTest, refusesNumbersThatOverflow) {
  for (const char* number : {"9223372036854775808", "-1e19", "1e400", "99999999999999999999999"}) {
    std::string text = filledText;
    text.replace(text.find("30\n"), 2, number);
    EXPECT_THROW(ConfigJson::read(text), JsonError) << number;
  }
}

TEST(ConfigJsonTest, doesNotCompareTheSchemaVersion) {
  json root = json::parse(filledText);
  root["schemaVersion"] = 99;
  EXPECT_EQ(ConfigJson::read(root.dump()).schemaVersion, 99);
}

TEST(ConfigJsonTest, passesOverKeysItDoesNotKnow) {
  json root = json::parse(filledText);
  root["future"] = {{"a", 1}};
  root["settings"]["future"] = nullptr;
  EXPECT_EQ(ConfigJson::read(root.dump()), filled());
}

TEST(ConfigJsonTest, takesNullForAbsent) {
  json root = json::parse(filledText);
  root["assignments"][0]["overlay"] = nullptr;
  EXPECT_EQ(ConfigJson::read(root.dump()), filled());
}

TEST(ConfigJsonTest, refusesWhatIsNotJson) {
  for (const char* text : {"", " ", "{", "nonsense", "{}x", "\xff", "{\"a\":\"\xff\"}", "NaN"}) {
    EXPECT_THROW(ConfigJson::read(text), JsonError) << text;
  }
}

TEST(ConfigJsonTest, refusesDeepNestingQuickly) {
  EXPECT_THROW(ConfigJson::read(std::string(1'000'000, '[')), JsonError);
}

TEST(ConfigJsonTest, writesNoNumberThatJsonDoesNotHave) {
  for (const double value :
       {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(ConfigJson::encode(SourceSpec{SourceSpec::Slideshow{{}, value}}), JsonError);
    EXPECT_THROW(ConfigJson::encode(OverlaySpec{.media = "m", .scale = value}), JsonError);
    EXPECT_THROW(ConfigJson::encode(OverlaySpec{.media = "m", .x = value}), JsonError);
  }
}

}  // namespace
}  // namespace lenslark
