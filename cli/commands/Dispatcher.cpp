#include "commands/Dispatcher.h"

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "base/Text.h"
#include "commands/AndroidCommand.h"
#include "commands/AppCommand.h"
#include "commands/DevicesCommand.h"
#include "commands/DoctorCommand.h"
#include "commands/FlagAdvice.h"
#include "commands/HelpText.h"
#include "commands/IosCommand.h"
#include "commands/McpCommand.h"
#include "commands/MediaCommand.h"
#include "commands/ServeCommand.h"
#include "commands/SnapshotCommand.h"
#include "commands/SourceCommand.h"
#include "commands/SourcesCommand.h"
#include "commands/Spelling.h"
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

}  // namespace

std::optional<std::string_view> nearestVerb(std::string_view word) {
  std::vector<std::string_view> verbs;
  for (const auto& command : commands) verbs.push_back(command.verb);
  return Spelling::nearest(word, verbs);
}

void run(const Arguments& arguments) {
  const auto verb = arguments.at(0);
  for (const auto& command : commands) {
    if (command.verb != verb) continue;
    for (const auto& note : FlagAdvice::notes(arguments)) {
      std::fprintf(stderr, "note: %s\n", Text::printable(note).c_str());
    }
    return command.run(arguments);
  }
  if (const auto nearest = nearestVerb(verb)) {
    std::fprintf(stderr, "Did you mean `lenslark %s`?\n", std::string(*nearest).c_str());
  }
  HelpText::print();
}

}  // namespace lenslark::Dispatcher
