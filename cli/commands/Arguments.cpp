#include "commands/Arguments.h"

#include <algorithm>

#include "base/Text.h"
#include "commands/Failure.h"

namespace lenslark {
namespace {

[[noreturn]] void failExpectingNumber(std::string_view flag) {
  throw UsageError(std::string(flag) + " expects a number");
}

}  // namespace

Arguments::Arguments(int argc, const char* const* argv) {
  if (argc > 1) words_.assign(argv + 1, argv + argc);
}

std::string_view Arguments::at(std::size_t index) const noexcept {
  return index < words_.size() ? std::string_view(words_[index]) : std::string_view();
}

bool Arguments::contains(std::string_view word) const noexcept {
  return std::find(words_.begin(), words_.end(), word) != words_.end();
}

std::vector<std::string> Arguments::positional(std::size_t index) const {
  std::vector<std::string> result;
  for (; index < words_.size() && !words_[index].starts_with("--"); ++index) {
    result.push_back(words_[index]);
  }
  return result;
}

std::optional<std::string> Arguments::value(std::string_view flag) const {
  const auto found = std::find(words_.begin(), words_.end(), flag);
  if (found == words_.end() || found + 1 == words_.end()) return std::nullopt;
  return *(found + 1);
}

std::optional<double> Arguments::doubleAfter(std::string_view flag) const {
  const auto text = value(flag);
  if (!text) return std::nullopt;
  const auto number = Text::parseDouble(*text);
  if (!number) failExpectingNumber(flag);
  return number;
}

std::optional<std::int64_t> Arguments::intAfter(std::string_view flag) const {
  const auto text = value(flag);
  if (!text) return std::nullopt;
  const auto number = Text::parseInteger(*text);
  if (!number) failExpectingNumber(flag);
  return number;
}

}  // namespace lenslark
