#include "commands/McpCommand.h"

#include <fmt/core.h>

#include <cstdio>

#include "commands/SharedControl.h"
#include "config/Lenslark.h"
#include "mcp/MCPServer.h"
#include "mcp/ProtocolChannel.h"

namespace lenslark::McpCommand {

void run(const Arguments&) {
  ProtocolChannel channel;
  JsonRpc::LineReader input(channel.takeInput());
  const MCPServer server(sharedControl());
  fmt::print(stderr, "lenslark mcp {} ready on stdio\n", Lenslark::version);
  server.run(input, [&](std::string_view line) { return channel.send(line); });
}

}  // namespace lenslark::McpCommand
