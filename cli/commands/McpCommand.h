#pragma once

#include "commands/Arguments.h"

/// `mcp`: serves agents on standard input and output until the input ends.
namespace lenslark::McpCommand {

void run(const Arguments& arguments);

}  // namespace lenslark::McpCommand
