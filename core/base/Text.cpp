#include "base/Text.h"

#include <clocale>
#include <cwctype>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace lenslark::Text {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

/// The code point at the front of `text` and its length, or the length of the broken sequence
/// there (Unicode 15, table 3-7).
struct Decoded {
  std::optional<char32_t> codePoint;
  std::size_t length;
};

Decoded decodeFront(std::string_view text) noexcept {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1};

  std::size_t trailing = 0;
  unsigned char lowest = 0x80;
  unsigned char highest = 0xBF;
  char32_t value = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trailing = 1;
    value = lead & 0x1FU;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trailing = 2;
    value = lead & 0x0FU;
    if (lead == 0xE0) lowest = 0xA0;   // no overlong forms
    if (lead == 0xED) highest = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trailing = 3;
    value = lead & 0x07U;
    if (lead == 0xF0) lowest = 0x90;
    if (lead == 0xF4) highest = 0x8F;
  } else {
    return {std::nullopt, 1};
  }
  for (std::size_t index = 1; index <= trailing; ++index) {
    if (index >= text.size() || byte(index) < lowest || byte(index) > highest) {
      return {std::nullopt, index};
    }
    value = (value << 6U) | (byte(index) & 0x3FU);
    lowest = 0x80;
    highest = 0xBF;
  }
  return {value, trailing + 1};
}

void appendUtf8(std::string& out, char32_t codePoint) {
  const auto put = [&](char32_t byte) { out += static_cast<char>(byte); };
  if (codePoint < 0x80) {
    put(codePoint);
  } else if (codePoint < 0x800) {
    put(0xC0 | (codePoint >> 6));
    put(0x80 | (codePoint & 0x3F));
  } else if (codePoint < 0x10000) {
    put(0xE0 | (codePoint >> 12));
    put(0x80 | ((codePoint >> 6) & 0x3F));
    put(0x80 | (codePoint & 0x3F));
  } else {
    put(0xF0 | (codePoint >> 18));
    put(0x80 | ((codePoint >> 12) & 0x3F));
    put(0x80 | ((codePoint >> 6) & 0x3F));
    put(0x80 | (codePoint & 0x3F));
  }
}

bool isControl(char32_t codePoint) noexcept {
  return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

/// How many bytes at the front are ASCII that is shown as it stands: most of any text.
std::size_t plainFront(std::string_view text) noexcept {
  const auto isPlain = [](char c) { return c >= ' ' && c <= '~'; };
  return static_cast<std::size_t>(std::ranges::find_if_not(text, isPlain) - text.begin());
}

/// glibc's own Unicode tables, independent of the user's locale settings.
locale_t unicodeLocale() {
  static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

char32_t toLower(char32_t codePoint) {
  if (codePoint < 0x80) {
    return codePoint >= U'A' && codePoint <= U'Z' ? codePoint + 32 : codePoint;
  }
  if (unicodeLocale() == nullptr) return codePoint;
  return static_cast<char32_t>(::towlower_l(static_cast<wint_t>(codePoint), unicodeLocale()));
}

/// What std::from_chars finds too large or too small, without saying which: infinite, or next to
/// nothing.
double beyondRange(std::string_view digits) {
  static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return ::strtod_l(std::string(digits).c_str(), nullptr, plain);
}

/// std::from_chars takes a "-" but no "+".
std::optional<std::string_view> withoutPlus(std::string_view text) noexcept {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') return std::nullopt;
  }
  if (text.empty()) return std::nullopt;
  return text;
}

}  // namespace

std::string_view trim(std::string_view text) noexcept {
  constexpr std::string_view space = " \t\r\n\f\v";
  const std::size_t first = text.find_first_not_of(space);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(space) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator, bool keepEmpty) {
  std::vector<std::string_view> pieces;
  for (;;) {
    const std::size_t end = text.find(separator);
    const std::string_view piece = text.substr(0, end);
    if (keepEmpty || !piece.empty()) pieces.push_back(piece);
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

std::string join(const std::vector<std::string>& pieces, std::string_view separator) {
  std::string joined;
  for (const std::string& piece : pieces) {
    if (&piece != &pieces.front()) joined += separator;
    joined += piece;
  }
  return joined;
}

std::string repairUtf8(std::string_view bytes) {
  std::string repaired;
  repaired.reserve(bytes.size());
  while (!bytes.empty()) {
    const Decoded front = decodeFront(bytes);
    repaired += front.codePoint ? bytes.substr(0, front.length) : replacement;
    bytes.remove_prefix(front.length);
  }
  return repaired;
}

std::string printable(std::string_view bytes, std::string_view kept) {
  std::string text;
  text.reserve(bytes.size());
  for (;;) {
    const std::size_t plain = plainFront(bytes);
    text += bytes.substr(0, plain);
    bytes.remove_prefix(plain);
    if (bytes.empty()) return text;
    const Decoded front = decodeFront(bytes);
    const bool shown = front.codePoint && (!isControl(*front.codePoint) ||
                                           kept.find(bytes.front()) != std::string_view::npos);
    text += shown ? bytes.substr(0, front.length) : front.codePoint ? "?" : replacement;
    bytes.remove_prefix(front.length);
  }
}

std::string lowercase(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  while (!text.empty()) {
    const Decoded front = decodeFront(text);
    if (front.codePoint) {
      appendUtf8(lower, toLower(*front.codePoint));
    } else {
      lower += text.substr(0, front.length);
    }
    text.remove_prefix(front.length);
  }
  return lower;
}

std::string shortestDouble(double value) {
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return {buffer.data(), result.ptr};
}

std::optional<int> parseInt(std::string_view text) noexcept {
  const auto digits = withoutPlus(text);
  if (!digits) return std::nullopt;
  int value = 0;
  const char* end = digits->data() + digits->size();
  const auto result = std::from_chars(digits->data(), end, value);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  return value;
}

std::optional<std::int64_t> parseInteger(std::string_view text) noexcept {
  const auto digits = withoutPlus(text);
  if (!digits) return std::nullopt;
  std::int64_t value = 0;
  const char* end = digits->data() + digits->size();
  const auto result = std::from_chars(digits->data(), end, value);
  if (result.ptr != end || result.ec == std::errc::invalid_argument) return std::nullopt;
  if (result.ec != std::errc::result_out_of_range) return value;
  using Limits = std::numeric_limits<std::int64_t>;
  return digits->front() == '-' ? Limits::min() : Limits::max();
}

std::optional<double> parseDouble(std::string_view text) {
  const auto digits = withoutPlus(text);
  if (!digits) return std::nullopt;
  double value = 0;
  const char* end = digits->data() + digits->size();
  const auto result = std::from_chars(digits->data(), end, value);
  if (result.ptr != end || result.ec == std::errc::invalid_argument) return std::nullopt;
  if (result.ec == std::errc::result_out_of_range) value = beyondRange(*digits);
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace lenslark::Text
