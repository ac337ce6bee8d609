#pragma once

#include "commands/Arguments.h"

namespace lenslark::VersionCommand {

/// Prints the program's version on a line of its own.
void run(const Arguments& arguments);

}  // namespace lenslark::VersionCommand
