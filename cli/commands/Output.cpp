#include "commands/Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "base/Json.h"
#include "base/PosixError.h"
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
  while (!text.empty()) {
    const auto written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      if (errno == EPIPE) throw Closed();
      throwErrno("standard output");
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void printLine(std::string_view line) { print(Text::printable(line) + "\n"); }

void printJSON(const nlohmann::json& value) { print(Json::pretty(value) + "\n"); }

}  // namespace lenslark::Output
