#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lenslark::Text {

/// Without white space and line ends at both ends.
std::string_view trim(std::string_view text) noexcept;

/// The pieces between separators; `keepEmpty` keeps those without any character.
std::vector<std::string_view> split(std::string_view text, char separator, bool keepEmpty = false);

std::string join(const std::vector<std::string>& pieces, std::string_view separator);

/// Valid UTF-8: what is not becomes U+FFFD, one for each maximal broken sequence.
std::string repairUtf8(std::string_view bytes);

/// What a terminal shows as text and nothing else: valid UTF-8, with a "?" for each control
/// character but those in `kept`, so that a name can neither break its line nor move the cursor.
std::string printable(std::string_view bytes, std::string_view kept = {});

/// Lower case, letters beyond ASCII included (simple case mapping, whatever the locale).
std::string lowercase(std::string_view text);

/// The shortest decimal text that reads back as the same number: "3", "0.25".
std::string shortestDouble(double value);

/// The whole text as a decimal number, an optional sign in front. Nothing for anything else and
/// for what does not fit.
std::optional<int> parseInt(std::string_view text) noexcept;

/// As `parseInt`, but what does not fit counts as the nearest number that does: to whoever counts
/// displays or frames a second, too large is too large.
std::optional<std::int64_t> parseInteger(std::string_view text) noexcept;

/// The whole text as a decimal floating-point number, an optional sign in front. "nan", "inf" and
/// what overflows are not numbers; what is too small for one is the nearest, mostly zero.
std::optional<double> parseDouble(std::string_view text);

}  // namespace lenslark::Text
