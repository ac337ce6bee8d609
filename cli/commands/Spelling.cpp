#include "commands/Spelling.h"

#include <algorithm>
#include <numeric>

namespace lenslark::Spelling {
namespace {

/// How many letters must be added, removed or replaced to make `right` of `left` (Levenshtein).
std::size_t editDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < right.size(); ++j) {
      const auto replaced = diagonal + (left[i] == right[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string_view> nearest(std::string_view word,
                                        const std::vector<std::string_view>& known) {
  constexpr std::size_t longestTypo = 20;
  if (word.empty() || word.size() > longestTypo) return std::nullopt;
  std::optional<std::string_view> found;
  // A third of the letters may be wrong, at least one: "soruce" but not "help" for a short verb.
  std::size_t allowed = std::max<std::size_t>(word.size() / 3, 1);
  for (const std::string_view candidate : known) {
    const auto distance = editDistance(word, candidate);
    if (distance == 0) return std::nullopt;
    if (distance > allowed || (found && distance == allowed)) continue;
    found = candidate;
    allowed = distance;
  }
  return found;
}

}  // namespace lenslark::Spelling
