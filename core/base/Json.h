#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "base/Clock.h"
#include "base/Error.h"

namespace lenslark {

/// JSON that cannot be read, or does not hold what it should.
class JsonError final : public Error {
 public:
  using Error::Error;
};

/// The project's JSON conventions over the library's values. Objects keep their keys sorted.
namespace Json {

/// Arrays and objects may be nested this deep in anything that is read.
inline constexpr int maxDepth = 64;

/// **Fails** with JsonError on anything but one JSON value in UTF-8, nested at most `maxDepth`.
nlohmann::json parse(std::string_view text);

/// The library takes a NUL byte for the end of a text and passes over what follows, which may be
/// anything: for those who call it themselves. **Fails** with JsonError when there is one.
void refuseNul(std::string_view text);

/// For people and files: indented by two, keys sorted, slashes unescaped. Text that is not UTF-8
/// is repaired.
std::string pretty(const nlohmann::json& value);

/// For the wire: one line.
std::string compact(const nlohmann::json& value);

/// A number that is written without ".0" when it is whole.
nlohmann::json number(double value);

/// "2025-05-01T09:30:00Z".
std::string formatDate(Date date);

/// Reads an ISO 8601 date with time and zone ("Z" or an offset); nothing when it is malformed.
std::optional<Date> parseDate(std::string_view text);

/// A required member. The `expect` functions **fail** with JsonError that names the key.
const nlohmann::json& expect(const nlohmann::json& object, const char* key);
std::string expectString(const nlohmann::json& object, const char* key);
bool expectBool(const nlohmann::json& object, const char* key);
double expectDouble(const nlohmann::json& object, const char* key);
/// Takes 30 and 30.0; refuses what does not fit.
std::int64_t expectInt(const nlohmann::json& object, const char* key);
Date expectDate(const nlohmann::json& object, const char* key);

/// The member, or null where it is missing or null itself.
const nlohmann::json* find(const nlohmann::json& object, const char* key);

}  // namespace Json
}  // namespace lenslark
