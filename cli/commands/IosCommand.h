#pragma once

#include "commands/Arguments.h"

namespace lenslark::IosCommand {

/// `ios launch|enable|disable`: puts the camera into simulator apps. Prints the help text for
/// another second word. **Fails** with UsageError, and with what the simulator's tool says.
void run(const Arguments& arguments);

}  // namespace lenslark::IosCommand
