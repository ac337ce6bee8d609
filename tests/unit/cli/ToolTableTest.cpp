#include "mcp/ToolTable.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace lenslark {
namespace {

using nlohmann::json;

const json& tool(std::size_t index) { return ToolTable::tools().at(index); }

TEST(ToolTableTest, listsTheToolsInOrder) {
  std::vector<std::string> names;
  for (const json& entry : ToolTable::tools()) names.push_back(entry.at("name"));
  EXPECT_EQ(names, (std::vector<std::string>{"list_devices", "set_source", "get_source",
                                             "reset_source", "add_media", "snapshot_feed"}));
}

const json deviceProp = json::parse(R"({"type": "string", "description":
  "Device name, iOS UDID, Android AVD name, device key (ios:UDID / android:AVD), 'booted' (all booted simulators) or 'all'. Omit for the global default."})");
const json cameraProp = json::parse(R"({"type": "string", "enum": ["back", "front"]})");

TEST(ToolTableTest, listDevicesTakesNothing) {
  EXPECT_EQ(tool(0), json::parse(R"({"name": "list_devices", "description":
    "Booted iOS simulators and running Android emulators, with what each camera shows and which scope that comes from.",
    "inputSchema": {"type": "object", "properties": {}}})"));
}

TEST(ToolTableTest, setSourceTakesAWholeRequest) {
  json expected = json::parse(R"({"name": "set_source", "description":
    "Set what a simulator/emulator camera sees: the desktop under its window, an image, a video, a slideshow or the test pattern, optionally with an image overlay. Omit device for the global default.",
    "inputSchema": {"type": "object", "required": ["kind"], "properties": {
      "kind": {"type": "string", "enum": ["desktop", "image", "video", "slideshow", "pattern", "display", "window"]},
      "path": {"type": "string", "description": "Absolute path of the image or video (or slideshow folder)."},
      "paths": {"type": "array", "items": {"type": "string"}, "description": "Slideshow images."},
      "loop": {"type": "boolean", "default": true},
      "interval": {"type": "number", "minimum": 0.5, "maximum": 60, "description": "Slideshow seconds per image."},
      "displayIndex": {"type": "integer"},
      "window": {"type": "string", "description": "Window title or app name to capture."},
      "overlay": {"type": "object", "required": ["path"], "properties": {
        "path": {"type": "string"},
        "anchor": {"type": "string", "enum": ["top-left", "top", "top-right", "left", "center", "right", "bottom-left", "bottom", "bottom-right"]},
        "scale": {"type": "number", "minimum": 0.05, "maximum": 1},
        "opacity": {"type": "number", "minimum": 0, "maximum": 1},
        "x": {"type": "number", "minimum": 0, "maximum": 1},
        "y": {"type": "number", "minimum": 0, "maximum": 1}}}}}})");
  json& properties = expected["inputSchema"]["properties"];
  properties["device"] = deviceProp;
  properties["camera"] = cameraProp;
  EXPECT_EQ(tool(1), expected);
}

TEST(ToolTableTest, getSourceTakesADeviceAndACamera) {
  json expected = json::parse(R"({"name": "get_source", "description":
    "What a camera shows and where that setting comes from (camera, device, global or default).",
    "inputSchema": {"type": "object"}})");
  expected["inputSchema"]["properties"] = {{"device", deviceProp}, {"camera", cameraProp}};
  EXPECT_EQ(tool(2), expected);
}

TEST(ToolTableTest, resetSourceTakesAllAsWell) {
  json expected = json::parse(R"({"name": "reset_source", "description":
    "Clear a setting so the camera falls back to the next scope. all=true clears everything.",
    "inputSchema": {"type": "object"}})");
  expected["inputSchema"]["properties"] = {
      {"device", deviceProp}, {"camera", cameraProp}, {"all", {{"type", "boolean"}}}};
  EXPECT_EQ(tool(3), expected);
}

TEST(ToolTableTest, addMediaNeedsPaths) {
  EXPECT_EQ(tool(4), json::parse(R"({"name": "add_media", "description":
    "Import images or videos into the Lenslark library (copied, deduplicated). Returns their ids.",
    "inputSchema": {"type": "object", "required": ["paths"], "properties": {
      "paths": {"type": "array", "items": {"type": "string"}}, "pin": {"type": "boolean"}}}})"));
}

TEST(ToolTableTest, snapshotFeedNeedsADevice) {
  json expected = json::parse(R"({"name": "snapshot_feed", "description":
    "PNG (≤1024 px) of the frame a device camera is being fed right now. Use it as evidence when a scan fails.",
    "inputSchema": {"type": "object", "required": ["device"]}})");
  expected["inputSchema"]["properties"] = {{"device", deviceProp}, {"camera", cameraProp}};
  EXPECT_EQ(tool(5), expected);
}

TEST(ToolTableTest, wholeBoundsAreWrittenWithoutDecimals) {
  const json& overlay = ToolTable::schema("set_source").at("properties").at("overlay");
  EXPECT_EQ(overlay.at("properties").at("scale").dump(),
            R"({"maximum":1,"minimum":0.05,"type":"number"})");
}

}  // namespace
}  // namespace lenslark
