#include "commands/Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <span>
#include <string>
#include <system_error>

#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "base/Text.h"

namespace lenslark::Output {

void holdStandardDescriptors() noexcept {
  // The lowest number that is free is the one that is given out. For reading only: who closed
  // standard output is still told that nothing can be written to it.
  int fd = -1;
  do {
    fd = ::open("/dev/null", O_RDONLY);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd > STDERR_FILENO) ::close(fd);
}

void surviveFailedWrites() {
  // A handler and not SIG_IGN: exec gives children the default action back.
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
}

void print(std::string_view text) {
  try {
    writeAll(STDOUT_FILENO, std::as_bytes(std::span(text)), "standard output");
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::broken_pipe) throw Closed();
    throw;
  }
}

void printLine(std::string_view line) { print(Text::printable(line) + "\n"); }

void printJSON(const nlohmann::json& value) { print(Json::pretty(value) + "\n"); }

}  // namespace lenslark::Output
