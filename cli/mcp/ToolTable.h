#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

/// What agents are told about the tools. **Threads**: any.
namespace lenslark::ToolTable {

/// The tools in the order in which they are listed: "name", "description" and "inputSchema" each.
const nlohmann::json& tools();

/// The schema of one tool's arguments. The tool must be in the table.
const nlohmann::json& schema(std::string_view tool);

}  // namespace lenslark::ToolTable
