#include "mcp/ArgumentCheck.h"

#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "base/Json.h"
#include "base/Text.h"
#include "control/ControlError.h"

namespace lenslark::ArgumentCheck {
namespace {

using nlohmann::json;

/// The value as an agent wrote it, cut where it would drown the message.
std::string shown(const json& value) {
  constexpr std::size_t longest = 120;
  const std::string text = Json::compact(value);
  if (text.size() <= longest) return text;
  return Text::repairUtf8(text.substr(0, longest)) + "…";
}

std::string words(const json& choices) {
  std::vector<std::string> texts;
  for (const json& choice : choices) texts.push_back(choice.get<std::string>());
  return Text::join(texts, ", ");
}

std::string range(const json& schema) {
  const auto minimum = schema.find("minimum");
  const auto maximum = schema.find("maximum");
  if (minimum == schema.end() || maximum == schema.end()) return "";
  return " from " + Json::compact(*minimum) + " to " + Json::compact(*maximum);
}

std::string allowed(const json& schema) {
  const std::string type = schema.at("type");
  if (const auto choices = schema.find("enum"); choices != schema.end()) {
    return "one of " + words(*choices);
  }
  if (type == "string") return "a string";
  if (type == "boolean") return "true or false";
  if (type == "integer") return "a whole number" + range(schema);
  if (type == "number") return "a number" + range(schema);
  // All arrays in the table are of texts.
  if (type == "array") return "an array of strings";
  return "an object";
}

bool hasType(const json& value, const std::string& type) {
  if (type == "string") return value.is_string();
  if (type == "boolean") return value.is_boolean();
  if (type == "number") return value.is_number();
  if (type == "array") return value.is_array();
  if (type == "object") return value.is_object();
  // JSON does not tell 2 from 2.0.
  return value.is_number_integer() ||
         (value.is_number() && std::nearbyint(value.get<double>()) == value.get<double>());
}

/// Of a number. In floating point: between integers of different signedness, the JSON library takes
/// what needs 64 bits for negative.
bool inRange(const json& value, const json& schema) {
  const auto minimum = schema.find("minimum");
  const auto maximum = schema.find("maximum");
  return (minimum == schema.end() || value.get<double>() >= minimum->get<double>()) &&
         (maximum == schema.end() || value.get<double>() <= maximum->get<double>());
}

bool isChoice(const json& value, const json& schema) {
  const auto choices = schema.find("enum");
  return choices == schema.end() ||
         std::find(choices->begin(), choices->end(), value) != choices->end();
}

void checkValue(const json& value, const json& schema, const std::string& name);

void checkMembers(const json& object, const json& schema, const std::string& prefix) {
  if (const auto required = schema.find("required"); required != schema.end()) {
    for (const json& member : *required) {
      if (object.contains(member.get<std::string>())) continue;
      throw ControlError::badArgs(prefix + member.get<std::string>() + " is required");
    }
  }
  const auto properties = schema.find("properties");
  if (properties == schema.end()) return;
  for (const auto& [key, memberSchema] : properties->items()) {
    const auto member = object.find(key);
    if (member != object.end()) checkValue(*member, memberSchema, prefix + key);
  }
}

void checkValue(const json& value, const json& schema, const std::string& name) {
  const bool fits =
      hasType(value, schema.at("type")) && isChoice(value, schema) && inRange(value, schema);
  if (!fits) {
    throw ControlError::badArgs(
        fmt::format("{} is {}; it must be {}", name, shown(value), allowed(schema)));
  }
  if (value.is_object()) return checkMembers(value, schema, name + ".");
  const auto items = schema.find("items");
  if (!value.is_array() || items == schema.end()) return;
  for (std::size_t index = 0; index < value.size(); ++index) {
    checkValue(value[index], *items, fmt::format("{}[{}]", name, index));
  }
}

}  // namespace

void check(const json& arguments, const json& schema) {
  if (!arguments.is_object()) {
    throw ControlError::badArgs(
        fmt::format("arguments is {}; it must be an object", shown(arguments)));
  }
  checkMembers(arguments, schema, "");
}

}  // namespace lenslark::ArgumentCheck
