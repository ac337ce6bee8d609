#include "base/Json.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace lenslark::Json {
namespace {

using nlohmann::json;

constexpr Date earliestDate = std::chrono::sys_days(std::chrono::year(0) / 1 / 1);
constexpr Date latestDate =
    std::chrono::sys_days(std::chrono::year(10000) / 1 / 1) - std::chrono::seconds(1);

JsonError wrongType(const char* key, const char* wanted) {
  return JsonError(fmt::format("\"{}\" is not {}", key, wanted));
}

/// Reads exactly `digits` decimal digits off the front of `text`.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits) {
  if (text.size() < digits) return std::nullopt;
  int value = 0;
  for (const char character : text.substr(0, digits)) {
    if (character < '0' || character > '9') return std::nullopt;
    value = value * 10 + (character - '0');
  }
  text.remove_prefix(digits);
  return value;
}

bool take(std::string_view& text, char wanted) {
  if (text.empty() || text.front() != wanted) return false;
  text.remove_prefix(1);
  return true;
}

/// "Z", "+02:00" or "+0200", as the offset from UTC.
std::optional<std::chrono::minutes> takeZone(std::string_view& text) {
  if (take(text, 'Z')) return std::chrono::minutes(0);
  const bool east = take(text, '+');
  if (!east && !take(text, '-')) return std::nullopt;
  const auto hours = takeNumber(text, 2);
  take(text, ':');
  const auto minutes = takeNumber(text, 2);
  if (!hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  const auto offset = std::chrono::hours(*hours) + std::chrono::minutes(*minutes);
  return east ? offset : -offset;
}

/// Seconds are counted whole. Returns whether nothing, or a point and its digits, came first.
bool skipFraction(std::string_view& text) {
  if (!take(text, '.')) return true;
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(digits);
  return digits > 0;
}

/// Beside the parser and not as its callback, which makes it several times slower.
void refuseDeepNesting(std::string_view text) {
  int depth = 0;
  bool quoted = false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    if (quoted) {
      if (character == '\\') ++index;
      if (character == '"') quoted = false;
      continue;
    }
    if (character == '"') quoted = true;
    if (character == ']' || character == '}') --depth;
    if (character != '[' && character != '{') continue;
    if (++depth > maxDepth) throw JsonError("JSON is nested too deeply");
  }
}

}  // namespace

json parse(std::string_view text) {
  refuseNul(text);
  refuseDeepNesting(text);
  try {
    return json::parse(text);
  } catch (const json::exception& error) {
    throw JsonError(error.what());
  }
}

void refuseNul(std::string_view text) {
  if (text.contains('\0')) throw JsonError("JSON holds no NUL bytes");
}

std::string pretty(const json& value) {
  return value.dump(2, ' ', false, json::error_handler_t::replace);
}

std::string compact(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

json number(double value) {
  constexpr double largestExact = 9007199254740992.0;  // 2^53
  if (std::nearbyint(value) == value && std::abs(value) < largestExact) {
    return static_cast<std::int64_t>(value);
  }
  return value;
}

std::string formatDate(Date date) {
  const auto day = std::chrono::floor<std::chrono::days>(date);
  const std::chrono::year_month_day calendar(day);
  const std::chrono::hh_mm_ss time(date - day);
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(calendar.year()),
                     static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count());
}

std::optional<Date> parseDate(std::string_view text) {
  const auto year = takeNumber(text, 4);
  if (!year || !take(text, '-')) return std::nullopt;
  const auto month = takeNumber(text, 2);
  if (!month || !take(text, '-')) return std::nullopt;
  const auto day = takeNumber(text, 2);
  if (!day || !take(text, 'T')) return std::nullopt;
  const auto hour = takeNumber(text, 2);
  if (!hour || !take(text, ':')) return std::nullopt;
  const auto minute = takeNumber(text, 2);
  if (!minute || !take(text, ':')) return std::nullopt;
  const auto second = takeNumber(text, 2);
  if (!second || !skipFraction(text)) return std::nullopt;
  const auto zone = takeZone(text);
  if (!zone || !text.empty()) return std::nullopt;

  const std::chrono::year_month_day calendar(std::chrono::year(*year),
                                             std::chrono::month(static_cast<unsigned>(*month)),
                                             std::chrono::day(static_cast<unsigned>(*day)));
  if (!calendar.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  const Date date = std::chrono::sys_days(calendar) + std::chrono::hours(*hour) +
                    std::chrono::minutes(*minute) + std::chrono::seconds(*second) - *zone;
  // An offset may reach beyond the years that four digits can write.
  if (date < earliestDate || date > latestDate) return std::nullopt;
  return date;
}

const json* find(const json& object, const char* key) {
  const auto member = object.find(key);
  if (member == object.end() || member->is_null()) return nullptr;
  return &*member;
}

const json& expect(const json& object, const char* key) {
  if (!object.is_object()) throw JsonError(fmt::format("no object to hold \"{}\"", key));
  const json* member = find(object, key);
  if (member == nullptr) throw JsonError(fmt::format("\"{}\" is missing", key));
  return *member;
}

std::string expectString(const json& object, const char* key) {
  const json& member = expect(object, key);
  if (!member.is_string()) throw wrongType(key, "text");
  return member.get<std::string>();
}

bool expectBool(const json& object, const char* key) {
  const json& member = expect(object, key);
  if (!member.is_boolean()) throw wrongType(key, "true or false");
  return member.get<bool>();
}

double expectDouble(const json& object, const char* key) {
  const json& member = expect(object, key);
  if (!member.is_number()) throw wrongType(key, "a number");
  return member.get<double>();
}

std::int64_t expectInt(const json& object, const char* key) {
  const json& member = expect(object, key);
  if (member.is_number_unsigned()) {
    const auto value = member.get<std::uint64_t>();
    if (std::in_range<std::int64_t>(value)) return static_cast<std::int64_t>(value);
  } else if (member.is_number_integer()) {
    return member.get<std::int64_t>();
  } else if (member.is_number_float()) {
    constexpr double beyond = 9223372036854775808.0;  // 2^63
    const auto value = member.get<double>();
    const bool fits = value >= -beyond && value < beyond;
    if (fits && std::nearbyint(value) == value) return static_cast<std::int64_t>(value);
  }
  throw wrongType(key, "a whole number");
}

Date expectDate(const json& object, const char* key) {
  const auto date = parseDate(expectString(object, key));
  if (!date) throw wrongType(key, "an ISO 8601 date");
  return *date;
}

}  // namespace lenslark::Json
