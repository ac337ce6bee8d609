#include "media/MediaIndexParser.h"

#include <array>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "base/Json.h"
#include "media/MediaIndex.h"

namespace lenslark::MediaIndex {
namespace {

using nlohmann::json;

/// Whether the name is the digest with an extension: then it cannot lead out of its directory.
bool isStoredName(std::string_view name, std::string_view digest) {
  constexpr std::size_t longestName = 255;
  if (!name.starts_with(digest) || name.size() > longestName) return false;
  name.remove_prefix(digest.size());
  return name.empty() ||
         (name.front() == '.' && name.find('/') == name.npos && name.find('\0') == name.npos);
}

std::optional<MediaItem::Kind> kindOf(std::string_view text) {
  for (const auto kind : {MediaItem::Kind::image, MediaItem::Kind::video}) {
    if (text == rawValue(kind)) return kind;
  }
  return std::nullopt;
}

/// Takes 30 and 30.0; refuses what does not fit.
std::optional<int> wholeNumber(double value) {
  if (std::nearbyint(value) != value || value < std::numeric_limits<int>::min() ||
      value > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  return static_cast<int>(value);
}

enum class Field : unsigned {
  id,
  kind,
  name,
  file,
  width,
  height,
  duration,
  pinned,
  addedAt,
  lastUsedAt,
  unknown
};

constexpr std::array<std::string_view, static_cast<std::size_t>(Field::unknown)> fieldNames{
    "id", "kind", "name", "file", "width", "height", "duration", "pinned", "addedAt", "lastUsedAt"};

Field fieldNamed(std::string_view key) {
  std::size_t index = 0;
  while (index < fieldNames.size() && fieldNames[index] != key) ++index;
  return static_cast<Field>(index);
}

constexpr unsigned bit(Field field) { return 1U << static_cast<unsigned>(field); }
constexpr unsigned everyField = bit(Field::unknown) - 1;

/// One entry while its members come in. Of members with one name the last counts.
class Entry {
 public:
  void text(Field field, std::string& value) {
    switch (field) {
      case Field::id:
        item_.id = std::move(value);
        return set(field, true);
      case Field::name:
        item_.name = std::move(value);
        return set(field, true);
      case Field::file:
        item_.file = std::move(value);
        return set(field, true);
      case Field::kind:
        return take(field, item_.kind, kindOf(value));
      case Field::addedAt:
        return take(field, item_.addedAt, Json::parseDate(value));
      case Field::lastUsedAt:
        return take(field, item_.lastUsedAt, Json::parseDate(value));
      default:
        return set(field, false);
    }
  }

  void number(Field field, double value) {
    switch (field) {
      case Field::width:
        return take(field, item_.width, wholeNumber(value));
      case Field::height:
        return take(field, item_.height, wholeNumber(value));
      case Field::duration:
        item_.duration = value;
        return set(field, true);
      default:
        return set(field, false);
    }
  }

  void boolean(Field field, bool value) {
    if (field == Field::pinned) item_.pinned = value;
    set(field, field == Field::pinned);
  }

  /// The same as a member that is not there.
  void null(Field field) {
    if (field == Field::unknown) return;
    if (field == Field::duration) item_.duration.reset();
    set(field, field == Field::duration);
  }

  void nested(Field field) { set(field, false); }

  /// The item, unless something of it is missing or wrong.
  std::optional<MediaItem> finish() {
    const auto digest = digestOf(item_.id);
    if (good_ != everyField || !digest || !isStoredName(item_.file, *digest)) return std::nullopt;
    return std::move(item_);
  }

 private:
  void set(Field field, bool good) {
    if (field == Field::unknown) return;
    good_ = good ? good_ | bit(field) : good_ & ~bit(field);
  }

  template <typename Value>
  void take(Field field, Value& member, const std::optional<Value>& value) {
    if (value) member = *value;
    set(field, value.has_value());
  }

  MediaItem item_;
  unsigned good_ = bit(Field::duration);  // pictures have none
};

/// What the library's parser tells of the text, piece by piece.
class Reader final : public nlohmann::json_sax<json> {
 public:
  bool null() override {
    return value([](Entry& entry, Field field) { entry.null(field); });
  }
  bool boolean(bool val) override {
    return value([val](Entry& entry, Field field) { entry.boolean(field, val); });
  }
  bool number_integer(number_integer_t val) override { return number(static_cast<double>(val)); }
  bool number_unsigned(number_unsigned_t val) override { return number(static_cast<double>(val)); }
  bool number_float(number_float_t val, const string_t&) override { return number(val); }
  bool string(string_t& val) override {
    return value([&val](Entry& entry, Field field) { entry.text(field, val); });
  }
  bool binary(binary_t&) override { return false; }

  bool start_array(std::size_t) override {
    if (depth_ == 0) isList_ = true;
    return open();
  }
  bool end_array() override {
    --depth_;
    return true;
  }

  bool start_object(std::size_t) override {
    if (depth_ == 1 && isList_) {
      entry_.emplace();
      ++depth_;
      return true;
    }
    return open();
  }
  bool key(string_t& val) override {
    if (depth_ == 2) field_ = fieldNamed(val);
    return true;
  }
  bool end_object() override {
    --depth_;
    if (depth_ != 1 || !entry_) return true;
    if (auto item = entry_->finish()) {
      parsed_.items.push_back(std::move(*item));
    } else {
      parsed_.whole = false;
    }
    entry_.reset();
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const json::exception& error) override {
    problem_ = error.what();
    return false;
  }

  Parsed finish(bool complete) {
    if (!complete) throw JsonError(problem_);
    if (!isList_) throw JsonError("the media index is no list");
    return std::move(parsed_);
  }

 private:
  bool number(double number) {
    return value([number](Entry& entry, Field field) { entry.number(field, number); });
  }

  /// A value that holds no others. What lies deeper than an entry's members tells nothing.
  template <typename Take>
  bool value(Take&& take) {
    if (depth_ == 2 && entry_) take(*entry_, field_);
    if (depth_ == 1) parsed_.whole = false;
    return true;
  }

  /// A list or an object that is no entry.
  bool open() {
    value([](Entry& entry, Field field) { entry.nested(field); });
    if (++depth_ <= Json::maxDepth) return true;
    problem_ = "JSON is nested too deeply";
    return false;
  }

  Parsed parsed_;
  std::optional<Entry> entry_;  // while inside one
  Field field_ = Field::unknown;
  int depth_ = 0;
  bool isList_ = false;
  std::string problem_;
};

}  // namespace

Parsed parse(std::string_view text) {
  Json::refuseNul(text);
  Reader reader;
  const bool complete = json::sax_parse(text.begin(), text.end(), &reader);
  return reader.finish(complete);
}

}  // namespace lenslark::MediaIndex
