#include <cstdio>
#include <cstdlib>
#include <exception>

#include "base/Log.h"
#include "commands/Arguments.h"
#include "commands/Dispatcher.h"
#include "commands/Failure.h"
#include "commands/Output.h"
#include "commands/ProcessLimits.h"

namespace lenslark {
namespace {

int run(int argc, char** argv) noexcept {
  Output::holdStandardDescriptors();
  Output::surviveFailedWrites();
  Log::mirrorToStandardError();
  ProcessLimits::spareAddressSpace();
  try {
    Dispatcher::run(Arguments(argc, argv));
  } catch (const Output::Closed&) {
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    return Failure::report(error);
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace lenslark

int main(int argc, char** argv) {
  const int status = lenslark::run(argc, argv);
  // Threads of the pools may still wait for a tool that hangs, load a module or decode a picture.
  // They must find every static object whole, also those of the libraries: none is destroyed.
  std::fflush(nullptr);
  std::_Exit(status);
}
