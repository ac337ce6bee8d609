#include "commands/McpCommand.h"

#include <fmt/core.h>

#include <cstdio>
#include <utility>

#include "commands/SharedControl.h"
#include "config/Lenslark.h"
#include "mcp/MCPServer.h"
#include "mcp/ProtocolChannel.h"

namespace lenslark::McpCommand {
namespace {

/// Diagnostics are for whoever looks at standard error; nobody has to.
void log(const std::string& line) { std::fputs((line + "\n").c_str(), stderr); }

}  // namespace

void run(const Arguments&) {
  ProtocolChannel channel;
  JsonRpc::LineReader input(channel.takeInput());
  const MCPServer server(sharedControl());
  log(fmt::format("lenslark mcp {} ready on stdio", Lenslark::version));
  server.run(input, [&](std::string line) { return channel.send(std::move(line)); });
}

}  // namespace lenslark::McpCommand
