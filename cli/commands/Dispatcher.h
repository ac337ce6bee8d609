#pragma once

#include <optional>
#include <string_view>

#include "commands/Arguments.h"

/// Finds the command that the first word names and runs it to its end.
namespace lenslark::Dispatcher {

/// Prints the help text when the first word is no verb or is missing; a verb that is nearly one
/// also gets one line of advice on standard error. So does each flag that a verb does not know.
/// **Fails** with what the command throws.
void run(const Arguments& arguments);

/// The verb that `word` was probably meant to be: nothing when it is one or resembles none.
std::optional<std::string_view> nearestVerb(std::string_view word);

}  // namespace lenslark::Dispatcher
