#pragma once

#include <string>
#include <vector>

#include "commands/Arguments.h"
#include "devices/AndroidEmulator.h"

namespace lenslark::AndroidCommand {

/// `android launch|webcams|avds`: starts emulators with the camera, lists what there is. Prints
/// the help text for another second word. **Fails** with UsageError, and with what the emulator's
/// tool says.
void run(const Arguments& arguments);

/// Which camera the words choose, wherever they stand, also among the emulator's own arguments.
AndroidEmulator::Facing facing(const Arguments& arguments);

/// The words behind the first "--".
std::vector<std::string> emulatorArguments(const Arguments& arguments);

}  // namespace lenslark::AndroidCommand
