#include "commands/VersionCommand.h"

#include "commands/Output.h"
#include "config/Lenslark.h"

namespace lenslark::VersionCommand {

void run(const Arguments&) { Output::printLine(Lenslark::version); }

}  // namespace lenslark::VersionCommand
