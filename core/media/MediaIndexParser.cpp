#include "media/MediaIndexParser.h"

#include <fmt/core.h>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "base/Json.h"
#include "base/Text.h"
#include "media/MediaIndex.h"

namespace lenslark::MediaIndex {
namespace {

/// Whether the name is the digest with an extension: then it cannot lead out of its directory.
bool isNameOf(std::string_view digest, std::string_view name) {
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
  void text(Field field, std::string_view value) {
    switch (field) {
      case Field::id:
        item_.id = value;
        return set(field, true);
      case Field::name:
        item_.name = value;
        return set(field, true);
      case Field::file:
        item_.file = value;
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
    if (good_ != everyField || !digest || !isNameOf(*digest, item_.file)) return std::nullopt;
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

/// Whether the text holds what UTF-8 has no place for: the parser lets the second half of a pair
/// through where it is escaped and stands alone.
bool holdsSurrogate(std::string_view text) noexcept {
  constexpr char lead = '\xED';
  for (auto at = text.find(lead); at != text.npos; at = text.find(lead, at + 1)) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) return true;
  }
  return false;
}

// NOLINTBEGIN(readability-identifier-naming): the library calls these by its own names.

/// What the library's parser tells of the text, piece by piece.
class Reader final : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, Reader> {
 public:
  bool Null() {
    return value([](Entry& entry, Field field) { entry.null(field); });
  }
  bool Bool(bool truth) {
    return value([truth](Entry& entry, Field field) { entry.boolean(field, truth); });
  }
  bool RawNumber(const char* digits, rapidjson::SizeType length, bool) {
    const auto number = Text::parseDouble({digits, length});
    if (!number) return refuse("a number is too large");
    return value([&number](Entry& entry, Field field) { entry.number(field, *number); });
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    if (holdsSurrogate({text, length})) return refuse("half a surrogate pair");
    return value([text, length](Entry& entry, Field field) { entry.text(field, {text, length}); });
  }

  bool StartArray() {
    if (depth_ == 0) isList_ = true;
    return open();
  }
  bool EndArray(rapidjson::SizeType) {
    --depth_;
    return true;
  }

  bool StartObject() {
    if (depth_ == 1 && isList_) {
      entry_.emplace();
      ++depth_;
      return true;
    }
    return open();
  }
  bool Key(const char* name, rapidjson::SizeType length, bool) {
    if (holdsSurrogate({name, length})) return refuse("half a surrogate pair");
    if (depth_ == 2) field_ = fieldNamed({name, length});
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
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

  const std::string& problem() const noexcept { return problem_; }

  Parsed finish() {
    if (!isList_) throw JsonError("the media index is no list");
    return std::move(parsed_);
  }

 private:
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
    return ++depth_ <= Json::maxDepth || refuse("JSON is nested too deeply");
  }

  bool refuse(const char* problem) {
    problem_ = problem;
    return false;
  }

  Parsed parsed_;
  std::optional<Entry> entry_;  // while inside one
  Field field_ = Field::unknown;
  int depth_ = 0;
  bool isList_ = false;
  std::string problem_;  // with what the parser has not seen itself
};

// NOLINTEND(readability-identifier-naming)

bool isAscii(std::string_view text) noexcept {
  unsigned char all = 0;
  for (const char character : text) all |= static_cast<unsigned char>(character);
  return all < 0x80;
}

/// How many bytes of a byte order mark come first.
std::size_t markLength(std::string_view text) noexcept {
  constexpr std::string_view mark = "\xEF\xBB\xBF";
  return text.starts_with(mark) ? mark.size() : 0;
}

}  // namespace

Parsed parse(std::string text) {
  // In place and with numbers left as they are the parser needs no stack of its own.
  constexpr unsigned plain = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
  constexpr unsigned validating = plain | rapidjson::kParseValidateEncodingFlag;
  Json::refuseNul(text);
  const bool ascii = isAscii(text);
  // Of a character that the end of the text cuts off, the parser takes all that its first byte
  // promises before it looks at any.
  constexpr std::size_t longestTail = 3;
  text.append(longestTail, '\0');
  rapidjson::InsituStringStream stream(text.data() + markLength(text));
  Reader reader;
  rapidjson::Reader parser;
  // Most names are ASCII, and validating takes as long as all the rest.
  const auto result =
      ascii ? parser.Parse<plain>(stream, reader) : parser.Parse<validating>(stream, reader);
  if (result.Code() == rapidjson::kParseErrorTermination) throw JsonError(reader.problem());
  if (result.IsError()) {
    throw JsonError(fmt::format("{} (at byte {})", rapidjson::GetParseError_En(result.Code()),
                                result.Offset()));
  }
  return reader.finish();
}

}  // namespace lenslark::MediaIndex
