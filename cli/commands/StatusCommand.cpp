#include "commands/StatusCommand.h"

#include <set>

#include "base/Text.h"
#include "commands/Output.h"
#include "commands/SharedControl.h"
#include "devices/AndroidEmulator.h"
#include "devices/CommandError.h"
#include "devices/Simulator.h"

namespace lenslark::StatusCommand {
namespace {

std::string injector(std::string (*find)()) {
  try {
    return find();
  } catch (const CommandError&) {
    return "missing (run scripts/build-injector.sh)";
  }
}

std::string listed(const std::vector<std::string>& names) {
  return names.empty() ? "none" : Text::printable(Text::join(names, ", "));
}

}  // namespace

void run(const Arguments&) {
  const CameraControl control = sharedControl();
  std::vector<std::string> simulators;
  std::set<std::string> emulators;
  for (const ConnectedDevice& device : control.connectedDevices()) {
    if (device.isIOS()) {
      const bool on = Simulator::isEnabled(device.key.id);
      simulators.push_back(device.name + (on ? " [camera on]" : ""));
    } else {
      emulators.insert(device.name);
    }
  }
  Output::print("iOS injector      : " + injector(Simulator::injectorPath) +
                "\nAndroid injector  : " + injector(AndroidEmulator::injectorPath) +
                "\nBooted simulators : " + listed(simulators) + "\nRunning emulators : " +
                listed({emulators.begin(), emulators.end()}) + "\nGlobal default    : " +
                Text::printable(control.summary(control.store().config().global())) + "\n");
}

}  // namespace lenslark::StatusCommand
