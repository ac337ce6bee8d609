#include "commands/DevicesCommand.h"

#include <nlohmann/json.hpp>
#include <string>

#include "commands/Output.h"
#include "commands/SharedControl.h"

namespace lenslark::DevicesCommand {

void run(const Arguments& arguments) {
  const nlohmann::json devices = sharedControl().devicesJSON();
  if (arguments.contains("--json")) return Output::printJSON(devices);
  if (devices.empty()) {
    return Output::printLine("No booted simulators or running emulators.");
  }
  for (const auto& device : devices) {
    const auto text = [&](const char* key) { return device.at(key).get<std::string>(); };
    Output::printLine(text("platform") + " " + text("name") + "  [" + text("key") + "]" +
                      (device.at("connected").get<bool>() ? "" : "  (not running)"));
  }
}

}  // namespace lenslark::DevicesCommand
