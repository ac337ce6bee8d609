#pragma once

#include "commands/Arguments.h"

/// `snapshot`: writes the frame that a camera is being fed to a PNG file.
namespace lenslark::SnapshotCommand {

void run(const Arguments& arguments);

}  // namespace lenslark::SnapshotCommand
