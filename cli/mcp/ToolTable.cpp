#include "mcp/ToolTable.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Json.h"

namespace lenslark::ToolTable {
namespace {

using nlohmann::json;

json text(const char* description) { return {{"type", "string"}, {"description", description}}; }

json strings() { return {{"type", "array"}, {"items", {{"type", "string"}}}}; }

json number(double minimum, double maximum) {
  return {
      {"type", "number"}, {"minimum", Json::number(minimum)}, {"maximum", Json::number(maximum)}};
}

json tool(const char* name, const char* description, json properties,
          const std::vector<std::string>& required = {}) {
  json schema = {{"type", "object"}, {"properties", std::move(properties)}};
  if (!required.empty()) schema["required"] = required;
  return {{"name", name}, {"description", description}, {"inputSchema", std::move(schema)}};
}

json described(json schema, const char* description) {
  schema["description"] = description;
  return schema;
}

const json& deviceProp() {
  static const json schema = text(
      "Device name, iOS UDID, Android AVD name, device key (ios:UDID / android:AVD), 'booted' "
      "(all booted simulators) or 'all'. Omit for the global default.");
  return schema;
}

const json& cameraProp() {
  static const json schema = {{"type", "string"}, {"enum", {"back", "front"}}};
  return schema;
}

json overlay() {
  return {{"type", "object"},
          {"properties",
           {{"path", {{"type", "string"}}},
            {"anchor",
             {{"type", "string"},
              {"enum",
               {"top-left", "top", "top-right", "left", "center", "right", "bottom-left", "bottom",
                "bottom-right"}}}},
            {"scale", number(0.05, 1)},
            {"opacity", number(0, 1)},
            {"x", number(0, 1)},
            {"y", number(0, 1)}}},
          {"required", {"path"}}};
}

json setSource() {
  return tool(
      "set_source",
      "Set what a simulator/emulator camera sees: the desktop under its window, an image, a video, "
      "a slideshow or the test pattern, optionally with an image overlay. Omit device for the "
      "global default.",
      {{"device", deviceProp()},
       {"camera", cameraProp()},
       {"kind",
        {{"type", "string"},
         {"enum", {"desktop", "image", "video", "slideshow", "pattern", "display", "window"}}}},
       {"path", text("Absolute path of the image or video (or slideshow folder).")},
       {"paths", described(strings(), "Slideshow images.")},
       {"loop", {{"type", "boolean"}, {"default", true}}},
       {"interval", described(number(0.5, 60), "Slideshow seconds per image.")},
       {"displayIndex", {{"type", "integer"}}},
       {"window", text("Window title or app name to capture.")},
       {"overlay", overlay()}},
      {"kind"});
}

json build() {
  return json::array({
      tool("list_devices",
           "Booted iOS simulators and running Android emulators, with what each camera shows and "
           "which scope that comes from.",
           json::object()),
      setSource(),
      tool("get_source",
           "What a camera shows and where that setting comes from (camera, device, global or "
           "default).",
           {{"device", deviceProp()}, {"camera", cameraProp()}}),
      tool("reset_source",
           "Clear a setting so the camera falls back to the next scope. all=true clears "
           "everything.",
           {{"device", deviceProp()}, {"camera", cameraProp()}, {"all", {{"type", "boolean"}}}}),
      tool("add_media",
           "Import images or videos into the Lenslark library (copied, deduplicated). Returns "
           "their ids.",
           {{"paths", strings()}, {"pin", {{"type", "boolean"}}}}, {"paths"}),
      tool("snapshot_feed",
           "PNG (≤1024 px) of the frame a device camera is being fed right now. Use it as evidence "
           "when a scan fails.",
           {{"device", deviceProp()}, {"camera", cameraProp()}}, {"device"}),
  });
}

}  // namespace

const json& tools() {
  static const json table = build();
  return table;
}

const json& schema(std::string_view tool) {
  const auto entry =
      std::ranges::find_if(tools(), [&](const json& it) { return it.at("name") == tool; });
  return entry->at("inputSchema");
}

}  // namespace lenslark::ToolTable
