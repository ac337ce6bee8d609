#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lenslark {

/// The words of one command line, without the program's name: the first is the verb.
///
/// Flags are words that begin with "--" (and "-o"); the word after a flag is its value, whatever it
/// looks like.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {}
  /// From what `main` gets.
  Arguments(int argc, const char* const* argv);

  std::size_t count() const noexcept { return words_.size(); }
  /// The word at `index`, empty beyond the end.
  std::string_view at(std::size_t index) const noexcept;
  const std::vector<std::string>& words() const noexcept { return words_; }

  /// Whether the word occurs anywhere.
  bool contains(std::string_view word) const noexcept;

  /// The words from `index` up to the first that begins with "--".
  std::vector<std::string> positional(std::size_t index) const;

  /// The word after the first occurrence of `flag`; nothing when the flag is missing or last.
  std::optional<std::string> value(std::string_view flag) const;

  /// The value as a number; nothing when there is none.
  /// **Fails** with UsageError "FLAG expects a number" when it is none.
  std::optional<double> doubleAfter(std::string_view flag) const;
  /// The same for whole numbers.
  std::optional<std::int64_t> intAfter(std::string_view flag) const;

 private:
  std::vector<std::string> words_;
};

}  // namespace lenslark
