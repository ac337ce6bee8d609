#include "commands/Dispatcher.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "commands/AndroidCommand.h"
#include "commands/AppCommand.h"
#include "commands/DevicesCommand.h"
#include "commands/DoctorCommand.h"
#include "commands/HelpText.h"
#include "commands/IosCommand.h"
#include "commands/McpCommand.h"
#include "commands/MediaCommand.h"
#include "commands/ServeCommand.h"
#include "commands/SnapshotCommand.h"
#include "commands/SourceCommand.h"
#include "commands/SourcesCommand.h"
#include "commands/StatusCommand.h"
#include "commands/VersionCommand.h"

namespace lenslark::Dispatcher {
namespace {

struct Command {
  std::string_view verb;
  void (*run)(const Arguments&);
};

/// Verbs are exact and case-sensitive. A command that finds its second word unknown prints the
/// help text itself.
constexpr std::array commands{
    Command{"serve", ServeCommand::run},       Command{"source", SourceCommand::run},
    Command{"devices", DevicesCommand::run},   Command{"media", MediaCommand::run},
    Command{"snapshot", SnapshotCommand::run}, Command{"doctor", DoctorCommand::run},
    Command{"mcp", McpCommand::run},           Command{"app", AppCommand::run},
    Command{"sources", SourcesCommand::run},   Command{"status", StatusCommand::run},
    Command{"--version", VersionCommand::run}, Command{"version", VersionCommand::run},
    Command{"ios", IosCommand::run},           Command{"android", AndroidCommand::run},
};

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

std::optional<std::string_view> nearestVerb(std::string_view word) {
  constexpr std::size_t longestTypo = 20;
  if (word.empty() || word.size() > longestTypo) return std::nullopt;
  std::optional<std::string_view> nearest;
  // A third of the letters may be wrong, at least one: "soruce" but not "help" for a short verb.
  std::size_t allowed = std::max<std::size_t>(word.size() / 3, 1);
  for (const auto& command : commands) {
    const auto distance = editDistance(word, command.verb);
    if (distance == 0) return std::nullopt;
    if (distance > allowed || (nearest && distance == allowed)) continue;
    nearest = command.verb;
    allowed = distance;
  }
  return nearest;
}

void run(const Arguments& arguments) {
  const auto verb = arguments.at(0);
  for (const auto& command : commands) {
    if (command.verb == verb) return command.run(arguments);
  }
  if (const auto nearest = nearestVerb(verb)) {
    std::fprintf(stderr, "Did you mean `lenslark %s`?\n", std::string(*nearest).c_str());
  }
  HelpText::print();
}

}  // namespace lenslark::Dispatcher
