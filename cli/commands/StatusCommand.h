#pragma once

#include "commands/Arguments.h"

/// `status`: injectors, devices and the global default on five lines.
namespace lenslark::StatusCommand {

void run(const Arguments& arguments);

}  // namespace lenslark::StatusCommand
