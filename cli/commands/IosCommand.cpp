#include "commands/IosCommand.h"

#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "commands/Output.h"
#include "devices/Simulator.h"

namespace lenslark::IosCommand {
namespace {

std::string udid(const Arguments& arguments) {
  return arguments.value("--udid").value_or("booted");
}

void launch(const Arguments& arguments) {
  if (arguments.count() < 3) {
    throw UsageError("usage: lenslark ios launch <bundle-id> [--udid UDID]");
  }
  const std::string bundleID(arguments.at(2));
  const std::string said = Simulator::launch(bundleID, udid(arguments));
  Output::print((said.empty() ? "launched " + bundleID : said) + "\n");
}

void enable(const Arguments& arguments) {
  Simulator::enableGlobally(udid(arguments));
  Output::printLine("Camera enabled. Relaunch your app (apps already running are unaffected).");
}

void disable(const Arguments& arguments) {
  Simulator::disableGlobally(udid(arguments));
  Output::printLine("Camera disabled for newly launched apps.");
}

}  // namespace

void run(const Arguments& arguments) {
  const std::string_view action = arguments.at(1);
  if (action == "launch") return launch(arguments);
  if (action == "enable") return enable(arguments);
  if (action == "disable") return disable(arguments);
  HelpText::print();
}

}  // namespace lenslark::IosCommand
