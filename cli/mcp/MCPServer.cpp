#include "mcp/MCPServer.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "base/Json.h"
#include "base/Text.h"
#include "config/Lenslark.h"
#include "mcp/ToolTable.h"

namespace lenslark {
namespace {

using nlohmann::json;

std::string parseError() { return JsonRpc::error("null", JsonRpc::parseErrorCode, "parse error"); }

json initializeResult() {
  return {{"protocolVersion", "2025-06-18"},
          {"capabilities", {{"tools", json::object()}}},
          {"serverInfo", {{"name", "lenslark"}, {"version", Lenslark::version}}},
          {"instructions",
           "Controls what iOS Simulator and Android emulator cameras see. Call list_devices first; "
           "prefer camera-scoped set_source in tests and reset_source afterwards."}};
}

}  // namespace

void MCPServer::run(JsonRpc::LineReader& input, const Send& send) const {
  while (const auto line = input.next()) {
    auto reply = line->tooLong ? parseError() : answer(line->text);
    if (reply && !send(std::move(*reply))) return;
  }
}

std::optional<std::string> MCPServer::answer(std::string_view line) const {
  if (Text::trim(line).empty()) return std::nullopt;
  JsonRpc::Message message;
  try {
    message = JsonRpc::read(line);
  } catch (const JsonError&) {
    return parseError();
  }
  // Nothing is asked of the client, so what looks like its answer belongs to nobody.
  if (!message.id || message.response) return std::nullopt;
  return answer(message);
}

std::string MCPServer::answer(const JsonRpc::Message& request) const {
  const auto result = [&](std::string_view text) { return JsonRpc::result(*request.id, text); };
  if (request.method == "initialize") return result(Json::compact(initializeResult()));
  if (request.method == "ping") return result("{}");
  if (request.method == "tools/list") {
    return result(Json::compact({{"tools", ToolTable::tools()}}));
  }
  if (request.method == "tools/call") {
    const json* tool = Json::find(request.params, "name");
    const json* arguments = Json::find(request.params, "arguments");
    return result(tools_.call(tool != nullptr && tool->is_string() ? *tool : json(""),
                              arguments != nullptr ? *arguments : json::object()));
  }
  return JsonRpc::error(*request.id, JsonRpc::methodNotFoundCode,
                        "method not found: " + request.method);
}

}  // namespace lenslark
