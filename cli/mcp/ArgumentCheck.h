#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

/// Holds a tool's arguments against its schema. **Threads**: any, pure.
namespace lenslark::ArgumentCheck {

/// Takes the subset of JSON Schema that the tool table uses: type, properties, required, items,
/// enum, minimum and maximum. Members that the schema does not name are let through, as JSON
/// Schema has it.
///
/// **Fails** with ControlError::badArgs that names the first argument at fault, what it was and
/// what is allowed ("overlay.scale is 3; it must be a number from 0.05 to 1"), or says that a
/// required one is missing ("kind is required").
void check(const nlohmann::json& arguments, const nlohmann::json& schema);

}  // namespace lenslark::ArgumentCheck
