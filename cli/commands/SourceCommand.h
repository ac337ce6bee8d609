#pragma once

#include "commands/Arguments.h"

/// `source set|get|reset`: decides and tells what cameras see.
namespace lenslark::SourceCommand {

/// **Fails** with UsageError and with what CameraControl throws.
void run(const Arguments& arguments);

}  // namespace lenslark::SourceCommand
