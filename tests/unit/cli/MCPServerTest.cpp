#include "mcp/MCPServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "mcp/ToolTable.h"
#include "support/Devices.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using nlohmann::json;
using testing::StartsWith;

class MCPServerTest : public testing::Test {
 protected:
  json answered(std::string_view line) { return json::parse(server.answer(line).value_or("null")); }

  json called(const std::string& tool, const json& arguments) {
    const json request = {{"jsonrpc", "2.0"},
                          {"id", 1},
                          {"method", "tools/call"},
                          {"params", {{"name", tool}, {"arguments", arguments}}}};
    return answered(request.dump()).at("result");
  }

  /// The text of a call that must succeed.
  std::string text(const std::string& tool, const json& arguments = json::object()) {
    const json result = called(tool, arguments);
    EXPECT_FALSE(result.contains("isError")) << result;
    return result.at("content").at(0).at("text");
  }

  /// The text of a call that must fail.
  std::string failure(const std::string& tool, const json& arguments = json::object()) {
    const json result = called(tool, arguments);
    EXPECT_EQ(result.value("isError", false), true) << result;
    EXPECT_EQ(result.at("content").size(), 1U);
    EXPECT_EQ(result.at("content").at(0).at("type"), "text");
    return result.at("content").at(0).at("text");
  }

  TemporaryDirectory folder;
  ConfigStore store{folder.path()};
  MediaLibrary media{folder / "Media"};
  std::vector<ConnectedDevice> connected{simulator("U1", "iPhone"), emulator("Pixel", 42)};
  MCPServer server{CameraControl(store, media, [this] { return connected; })};
};

TEST_F(MCPServerTest, initializeSaysWhoItIs) {
  EXPECT_EQ(answered(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{}})"),
            json::parse(R"({"jsonrpc": "2.0", "id": 0, "result": {
              "protocolVersion": "2025-06-18",
              "capabilities": {"tools": {}},
              "serverInfo": {"name": "lenslark", "version": "1.1.0"},
              "instructions": "Controls what iOS Simulator and Android emulator cameras see. Call list_devices first; prefer camera-scoped set_source in tests and reset_source afterwards."}})"));
}

TEST_F(MCPServerTest, pingIsAnsweredWithNothingInIt) {
  EXPECT_EQ(server.answer(R"({"jsonrpc":"2.0","id":"x","method":"ping"})"),
            R"({"id":"x","jsonrpc":"2.0","result":{}})");
}

TEST_F(MCPServerTest, toolsAreListed) {
  EXPECT_EQ(answered(R"({"id":1,"method":"tools/list"})").at("result"),
            (json{{"tools", ToolTable::tools()}}));
}

TEST_F(MCPServerTest, anUnknownMethodIsAnError) {
  EXPECT_EQ(server.answer(R"({"id":2,"method":"resources/list"})"),
            R"({"error":{"code":-32601,"message":"method not found: resources/list"},"id":2,)"
            R"("jsonrpc":"2.0"})");
}

TEST_F(MCPServerTest, aRequestWithoutAMethodIsAnError) {
  EXPECT_EQ(answered(R"({"id":2})").at("error").at("code"), -32601);
}

TEST_F(MCPServerTest, whatIsNoMessageIsAParseError) {
  for (const char* line : {"garbage", "[]", "{", "\"x\"", "\xff"}) {
    EXPECT_EQ(server.answer(line),
              R"({"error":{"code":-32700,"message":"parse error"},"id":null,"jsonrpc":"2.0"})")
        << line;
  }
}

TEST_F(MCPServerTest, notificationsAreNotAnswered) {
  for (const char* line : {R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                           R"({"method":"notifications/cancelled","params":{"requestId":1}})",
                           R"({"method":"ping"})", R"({"method":"nobody/knows"})", "{}"}) {
    EXPECT_EQ(server.answer(line), std::nullopt) << line;
  }
}

TEST_F(MCPServerTest, aCallWithoutAnIdIsNotCarriedOut) {
  server.answer(
      R"({"method":"tools/call","params":{"name":"set_source","arguments":{"kind":"pattern"}}})");
  EXPECT_TRUE(store.config().assignments.empty());
}

TEST_F(MCPServerTest, answersAreNotAnswered) {
  EXPECT_EQ(server.answer(R"({"jsonrpc":"2.0","id":4,"result":{}})"), std::nullopt);
}

TEST_F(MCPServerTest, blankLinesAreIgnored) {
  for (const char* line : {"", " ", "\r", "\t \r"}) EXPECT_EQ(server.answer(line), std::nullopt);
}

TEST_F(MCPServerTest, aCarriageReturnAtTheEndIsNoFault) {
  EXPECT_EQ(server.answer("{\"id\":1,\"method\":\"ping\"}\r"),
            R"({"id":1,"jsonrpc":"2.0","result":{}})");
}

TEST_F(MCPServerTest, runAnswersInOrderAndEndsWithTheInput) {
  constexpr std::string_view input =
      "{\"id\":1,\"method\":\"ping\"}\n\ngarbage\n{\"method\":\"x\"}\n{\"id\":2,\"method\":"
      "\"ping\"}";
  FileDescriptor file(memfd_create("input", MFD_CLOEXEC));
  writeAll(file, std::as_bytes(std::span(input)), "input");
  lseek(file.get(), 0, SEEK_SET);
  JsonRpc::LineReader reader(std::move(file));
  std::vector<json> ids;
  server.run(reader, [&](std::string_view line) {
    ids.push_back(json::parse(line).at("id"));
    return true;
  });
  EXPECT_EQ(ids, (std::vector<json>{1, nullptr, 2}));
}

TEST_F(MCPServerTest, runEndsWhenNobodyListens) {
  FileDescriptor file(memfd_create("input", MFD_CLOEXEC));
  writeAll(file, std::as_bytes(std::span(std::string_view("garbage\ngarbage\n"))), "input");
  lseek(file.get(), 0, SEEK_SET);
  JsonRpc::LineReader reader(std::move(file));
  int sent = 0;
  server.run(reader, [&](std::string_view) {
    ++sent;
    return false;
  });
  EXPECT_EQ(sent, 1);
}

TEST_F(MCPServerTest, anUnknownToolIsAFailedCall) {
  EXPECT_EQ(failure("make_coffee"), "bad_args: unknown tool make_coffee");
  EXPECT_EQ(
      answered(R"({"id":1,"method":"tools/call"})").at("result").at("content").at(0).at("text"),
      "bad_args: unknown tool ");
}

TEST_F(MCPServerTest, missingArgumentsAreNone) {
  const json answer = answered(R"({"id":1,"method":"tools/call","params":{"name":"set_source"}})");
  EXPECT_EQ(answer.at("result").at("content").at(0).at("text"), "bad_args: kind is required");
}

TEST_F(MCPServerTest, listDevicesIsPrettySortedJSON) {
  connected = {emulator("Pixel", 42)};
  EXPECT_EQ(text("list_devices"), R"([
  {
    "cameras": [
      {
        "camera": "back",
        "inheritedFrom": "default",
        "kind": "desktop",
        "scope": "global"
      }
    ],
    "connected": true,
    "key": "android:Pixel",
    "name": "Pixel",
    "platform": "Android"
  }
])");
}

TEST_F(MCPServerTest, setSourceSaysWhatWasSet) {
  EXPECT_EQ(text("set_source", {{"kind", "pattern"}}),
            "global default → test pattern\nRunning camera apps pick this up within a second.");
}

TEST_F(MCPServerTest, setSourceNamesEachScope) {
  EXPECT_EQ(text("set_source", {{"kind", "display"}, {"displayIndex", 2}, {"device", "all"}}),
            "ios:U1 → display 2\nandroid:Pixel → display 2\n"
            "Running camera apps pick this up within a second.");
  EXPECT_EQ(
      text("set_source",
           {{"kind", "window"}, {"window", "Maps"}, {"device", "iphone"}, {"camera", "front"}}),
      "ios:U1 front → window \"Maps\"\nRunning camera apps pick this up within a second.");
}

TEST_F(MCPServerTest, setSourceForNobodySetsNothing) {
  connected.clear();
  EXPECT_EQ(text("set_source", {{"kind", "pattern"}, {"device", "all"}}),
            "\nRunning camera apps pick this up within a second.");
}

TEST_F(MCPServerTest, setSourceKeepsTheWordsOfTheCommandLine) {
  EXPECT_EQ(failure("set_source", {{"kind", "hologram"}}),
            "bad_args: unknown source \"hologram\" (desktop, image, video, slideshow, pattern, "
            "display, window)");
  EXPECT_EQ(failure("set_source", {{"kind", "image"}}), "bad_args: image needs a file");
  EXPECT_EQ(failure("set_source", {{"kind", "pattern"}, {"camera", "back"}}),
            "bad_args: --camera needs --device");
}

TEST_F(MCPServerTest, setSourceTakesListedWordsOnly) {
  EXPECT_THAT(failure("set_source", {{"kind", "Pattern"}}), StartsWith("bad_args: unknown source"));
  EXPECT_THAT(failure("set_source", {{"kind", "live"}}), StartsWith("bad_args: unknown source"));
}

TEST_F(MCPServerTest, setSourceRefusesAnUnknownAnchor) {
  EXPECT_EQ(failure("set_source",
                    {{"kind", "pattern"}, {"overlay", {{"path", "/x.png"}, {"anchor", "middle"}}}}),
            "bad_args: unknown anchor middle");
}

TEST_F(MCPServerTest, setSourceRefusesADisplayBeyondAllNumbers) {
  EXPECT_EQ(failure("set_source", {{"kind", "display"}, {"displayIndex", 9223372036854775808U}}),
            "bad_args: displayIndex is 9223372036854775808; it must be a whole number from "
            "-9223372036854775808 to 9223372036854775807");
}

TEST_F(MCPServerTest, libraryErrorsKeepTheirCodes) {
  folder.write("notes.txt", "");
  EXPECT_EQ(failure("set_source", {{"kind", "image"}, {"path", "/nowhere.png"}}),
            "bad_args: /nowhere.png is not a readable file");
  EXPECT_EQ(failure("set_source", {{"kind", "image"}, {"path", folder / "notes.txt"}}),
            "unsupported_media: notes.txt is not an image or video Lenslark can show");
}

TEST_F(MCPServerTest, anUnknownDeviceHasItsCode) {
  EXPECT_EQ(failure("get_source", {{"device", "Nokia"}}),
            "device_not_found: No device matches \"Nokia\". Run `lenslark devices`.");
}

TEST_F(MCPServerTest, otherErrorsAreInternal) {
  folder.write("config.lock/in the way", "");
  EXPECT_THAT(failure("set_source", {{"kind", "pattern"}}), StartsWith("internal: "));
}

TEST_F(MCPServerTest, getSourceWithoutADeviceIsTheGlobalDefault) {
  EXPECT_EQ(json::parse(text("get_source")),
            (json{{"inheritedFrom", "default"}, {"kind", "desktop"}, {"scope", "global"}}));
  text("set_source", {{"kind", "pattern"}});
  EXPECT_EQ(json::parse(text("get_source")),
            (json{{"inheritedFrom", "global"}, {"kind", "pattern"}, {"scope", "global"}}));
}

TEST_F(MCPServerTest, getSourceTellsOfEachDeviceMatched) {
  text("set_source", {{"kind", "pattern"}, {"device", "ios:U1"}, {"camera", "front"}});
  EXPECT_EQ(json::parse(text("get_source", {{"device", "all"}})), json::parse(R"([
    {"camera": "back", "deviceKey": "ios:U1", "inheritedFrom": "default", "kind": "desktop",
     "scope": "global"},
    {"camera": "back", "deviceKey": "android:Pixel", "inheritedFrom": "default",
     "kind": "desktop", "scope": "global"}])"));
  EXPECT_EQ(json::parse(text("get_source", {{"device", "iPhone"}, {"camera", "front"}})),
            json::parse(R"([{"camera": "front", "deviceKey": "ios:U1", "inheritedFrom": "camera",
                             "kind": "pattern", "scope": "camera"}])"));
}

TEST_F(MCPServerTest, getSourceWithACameraNeedsADevice) {
  EXPECT_EQ(failure("get_source", {{"camera", "back"}}), "bad_args: --camera needs --device");
}

TEST_F(MCPServerTest, resetSourceForgets) {
  text("set_source", {{"kind", "pattern"}, {"device", "all"}});
  EXPECT_EQ(text("reset_source", {{"device", "Pixel"}}),
            "Reset. Cameras fall back to the next scope (camera › device › global › desktop).");
  EXPECT_EQ(store.config().assignments.size(), 1U);
  text("reset_source", {{"all", true}});
  EXPECT_TRUE(store.config().assignments.empty());
}

TEST_F(MCPServerTest, addMediaNeedsAPath) {
  EXPECT_EQ(failure("add_media", {{"paths", json::array()}}), "bad_args: paths is required");
}

TEST_F(MCPServerTest, aSnapshotWithoutAFeedFails) {
  EXPECT_EQ(failure("snapshot_feed", {{"device", "Pixel"}}),
            "app_not_running: Pixel has no live feed; is Lenslark on?");
}

}  // namespace
}  // namespace lenslark
