#include "mcp/ArgumentCheck.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "control/ControlError.h"
#include "mcp/ToolTable.h"

namespace lenslark {
namespace {

using nlohmann::json;

/// What is said against arguments in JSON text, empty when nothing is.
std::string complaint(const char* tool, const char* arguments) {
  try {
    ArgumentCheck::check(json::parse(arguments), ToolTable::schema(tool));
    return "";
  } catch (const ControlError& error) {
    EXPECT_EQ(error.code(), "bad_args");
    return error.what();
  }
}

TEST(ArgumentCheckTest, whatTheSchemaAllowsPasses) {
  EXPECT_EQ(complaint("set_source", R"({"kind": "slideshow", "paths": ["a", "b"], "loop": false,
    "interval": 0.5, "displayIndex": 2.0, "window": "", "device": "all", "camera": "front",
    "overlay": {"path": "x", "anchor": "top-left", "scale": 0.05, "opacity": 0, "x": 1, "y": 1}})"),
            "");
}

TEST(ArgumentCheckTest, optionalArgumentsMayBeMissing) {
  EXPECT_EQ(complaint("get_source", "{}"), "");
  EXPECT_EQ(complaint("list_devices", "{}"), "");
}

TEST(ArgumentCheckTest, argumentsThatNobodyKnowsPass) {
  EXPECT_EQ(complaint("list_devices", R"({"verbose": true})"), "");
}

TEST(ArgumentCheckTest, requiredArgumentsAreAskedFor) {
  EXPECT_EQ(complaint("set_source", "{}"), "kind is required");
  EXPECT_EQ(complaint("add_media", "{}"), "paths is required");
  EXPECT_EQ(complaint("snapshot_feed", "{}"), "device is required");
  EXPECT_EQ(complaint("set_source", R"({"kind": "pattern", "overlay": {}})"),
            "overlay.path is required");
}

TEST(ArgumentCheckTest, argumentsMustBeAnObject) {
  EXPECT_EQ(complaint("get_source", "[1]"), "arguments is [1]; it must be an object");
}

TEST(ArgumentCheckTest, typesAreTold) {
  EXPECT_EQ(complaint("get_source", R"({"device": 5})"), "device is 5; it must be a string");
  EXPECT_EQ(complaint("get_source", R"({"device": null})"), "device is null; it must be a string");
  EXPECT_EQ(complaint("reset_source", R"({"all": "yes"})"),
            "all is \"yes\"; it must be true or false");
  EXPECT_EQ(complaint("add_media", R"({"paths": "a.png"})"),
            "paths is \"a.png\"; it must be an array of strings");
  EXPECT_EQ(complaint("add_media", R"({"paths": ["a.png", 3]})"),
            "paths[1] is 3; it must be a string");
  EXPECT_EQ(complaint("set_source", R"({"kind": "display", "displayIndex": 1.5})"),
            "displayIndex is 1.5; it must be a whole number");
  EXPECT_EQ(complaint("set_source", R"({"kind": "display", "displayIndex": "1"})"),
            "displayIndex is \"1\"; it must be a whole number");
  EXPECT_EQ(complaint("set_source", R"({"kind": "pattern", "overlay": "logo.png"})"),
            "overlay is \"logo.png\"; it must be an object");
}

TEST(ArgumentCheckTest, rangesAreTold) {
  EXPECT_EQ(complaint("set_source", R"({"kind": "slideshow", "interval": 0.4})"),
            "interval is 0.4; it must be a number from 0.5 to 60");
  EXPECT_EQ(complaint("set_source", R"({"kind": "slideshow", "interval": 61})"),
            "interval is 61; it must be a number from 0.5 to 60");
  EXPECT_EQ(complaint("set_source", R"({"kind": "pattern", "overlay": {"path": "x", "scale": 3}})"),
            "overlay.scale is 3; it must be a number from 0.05 to 1");
  EXPECT_EQ(complaint("set_source", R"({"kind": "pattern", "overlay": {"path": "x", "x": -0.1}})"),
            "overlay.x is -0.1; it must be a number from 0 to 1");
}

TEST(ArgumentCheckTest, integersOfAnySizeHaveTheirPlaceInARange) {
  for (const char* large : {"9223372036854775807", "9223372036854775808", "18446744073709551615"}) {
    const std::string interval = std::string(R"({"kind": "pattern", "interval": )") + large + "}";
    EXPECT_NE(complaint("set_source", interval.c_str()), "") << large;
  }
  EXPECT_NE(complaint("set_source", R"({"kind": "pattern", "interval": -9223372036854775808})"),
            "");
}

TEST(ArgumentCheckTest, wholeNumbersMayBeWrittenInAnyWay) {
  EXPECT_EQ(complaint("set_source", R"({"kind": "display", "displayIndex": 1e18})"), "");
  EXPECT_EQ(complaint("set_source", R"({"kind": "display", "displayIndex": -2.0e0})"), "");
}

TEST(ArgumentCheckTest, choicesAreTold) {
  EXPECT_EQ(complaint("get_source", R"({"camera": "side"})"),
            "camera is \"side\"; it must be one of back, front");
  EXPECT_EQ(complaint("get_source", R"({"camera": "Front"})"),
            "camera is \"Front\"; it must be one of back, front");
}

TEST(ArgumentCheckTest, longValuesAreCut) {
  const json arguments = {{"device", json::array({std::string(100000, 'x')})}};
  try {
    ArgumentCheck::check(arguments, ToolTable::schema("get_source"));
    FAIL();
  } catch (const ControlError& error) {
    EXPECT_LT(std::string(error.what()).size(), 200U);
  }
}

}  // namespace
}  // namespace lenslark
