#include "commands/FlagAdvice.h"

#include <algorithm>
#include <string_view>

#include "commands/Spelling.h"

namespace lenslark::FlagAdvice {
namespace {

using Words = std::vector<std::string_view>;

/// What stands behind a verb.
struct Usage {
  std::string_view verb;
  std::size_t start;  // of the flags at the earliest
  Words withValue;
  Words alone;
};

const Usage* usageOf(std::string_view verb) {
  static const std::vector<Usage> usages{
      {"serve",
       1,
       {"--display", "--window", "--image", "--video", "--fps", "--mode"},
       {"--test-pattern"}},
      {"source",
       2,
       {"--device", "--camera", "--overlay", "--anchor", "--scale", "--opacity", "--x", "--y",
        "--interval"},
       {"--json", "--once", "--all"}},
      {"devices", 1, {}, {"--json"}},
      {"media", 2, {}, {"--pin", "--json", "--force"}},
      {"snapshot", 1, {"--device", "--camera", "-o"}, {}},
      {"doctor", 1, {}, {"--fix", "--json"}},
      {"mcp", 1, {}, {}},
      {"app", 2, {}, {}},
      {"sources", 1, {}, {"--json"}},
      {"status", 1, {}, {}},
      {"ios", 2, {"--udid"}, {}},
      {"android", 2, {}, {"--back", "--front"}},
  };
  const auto found = std::ranges::find(usages, verb, &Usage::verb);
  return found == usages.end() ? nullptr : &*found;
}

bool contains(const Words& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

std::string unknown(std::string_view flag, const Usage& usage) {
  Words known = usage.withValue;
  known.insert(known.end(), usage.alone.begin(), usage.alone.end());
  const auto meant = Spelling::nearest(flag, known);
  return std::string(flag) + " is no flag of `lenslark " + std::string(usage.verb) +
         "` and is left out. " +
         (meant ? "Did you mean " + std::string(*meant) + "?" : "See `lenslark help`.");
}

}  // namespace

std::vector<std::string> notes(const Arguments& arguments) {
  const Usage* usage = usageOf(arguments.at(0));
  if (usage == nullptr) return {};
  const auto isFlag = [&](std::string_view word) {
    return word.starts_with("--") || contains(usage->withValue, word);
  };
  const bool phones = usage->verb == "ios" || usage->verb == "android";
  // Without a value, --udid means the booted simulator; `snapshot` tells its usage itself.
  const bool tellsOfMissing = !phones && usage->verb != "snapshot";
  std::vector<std::string> notes;
  // What is launched may be called anything.
  std::size_t index = usage->start + (phones && arguments.at(1) == "launch" ? 1 : 0);
  for (; index < arguments.count(); ++index) {
    const std::string_view word = arguments.at(index);
    const bool last = index + 1 == arguments.count();
    if (phones && word == "--") break;  // the rest is the emulator's
    if (!isFlag(word) || contains(usage->alone, word)) continue;
    if (contains(usage->withValue, word)) {
      if (last && tellsOfMissing) {
        notes.push_back(std::string(word) + " has no value and is left out.");
      }
      ++index;
      continue;
    }
    notes.push_back(unknown(word, *usage));
    // What follows was meant for it.
    if (!last && !isFlag(arguments.at(index + 1))) ++index;
  }
  return notes;
}

}  // namespace lenslark::FlagAdvice
