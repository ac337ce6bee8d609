#pragma once

#include "commands/Arguments.h"

/// `devices`: lists connected and remembered devices with what their cameras show.
namespace lenslark::DevicesCommand {

void run(const Arguments& arguments);

}  // namespace lenslark::DevicesCommand
