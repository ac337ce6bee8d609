#pragma once

#include <string>

#include "commands/Arguments.h"
#include "sources/ScreenCapturer.h"

/// `lenslark sources [--json]`: the displays and windows that can be captured, in the order in
/// which `--display N` and window texts find them.
namespace lenslark::SourcesCommand {

/// The list for people: aligned columns, one line a display or window.
std::string text(const ScreenCapturer::Sources& sources);

void run(const Arguments& arguments);

}  // namespace lenslark::SourcesCommand
