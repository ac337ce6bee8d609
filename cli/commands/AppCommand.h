#pragma once

#include "commands/Arguments.h"

/// `app enable|disable|toggle|status`: controls the menu-bar application.
namespace lenslark::AppCommand {

/// Prints the application's answer; the help text where the second word is none of the four.
/// **Fails** with ControlError::appNotRunning when no application answers.
void run(const Arguments& arguments);

}  // namespace lenslark::AppCommand
