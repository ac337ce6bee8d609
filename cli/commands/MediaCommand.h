#pragma once

#include "commands/Arguments.h"

/// `media add|list|rm|pin|unpin`: manages the media library.
namespace lenslark::MediaCommand {

/// **Fails** with UsageError and with what the library throws.
void run(const Arguments& arguments);

}  // namespace lenslark::MediaCommand
