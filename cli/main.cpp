#include <exception>

#include "commands/Arguments.h"
#include "commands/Dispatcher.h"
#include "commands/Failure.h"
#include "commands/Output.h"

int main(int argc, char** argv) {
  using namespace lenslark;
  Output::surviveClosedPipes();
  try {
    Dispatcher::run(Arguments(argc, argv));
  } catch (const Output::Closed&) {
    return 0;
  } catch (const std::exception& error) {
    return Failure::report(error);
  }
  return 0;
}
