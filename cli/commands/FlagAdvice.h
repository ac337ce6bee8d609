#pragma once

#include <string>
#include <vector>

#include "commands/Arguments.h"

/// Says which words of a command line do nothing, before the command runs without them: a mistyped
/// --device would change the global default unseen.
namespace lenslark::FlagAdvice {

/// One line for each flag that the verb does not know or that has no value. Words that a command
/// takes as they are get none.
std::vector<std::string> notes(const Arguments& arguments);

}  // namespace lenslark::FlagAdvice
