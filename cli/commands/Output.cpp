#include "commands/Output.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "base/Json.h"
#include "base/PosixError.h"

namespace lenslark::Output {

void surviveClosedPipes() {
  // A handler and not SIG_IGN: exec gives children the default action back.
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &action, nullptr);
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

void printLine(std::string_view line) {
  std::string text(line);
  text += '\n';
  print(text);
}

void printJSON(const nlohmann::json& value) { printLine(Json::pretty(value)); }

}  // namespace lenslark::Output
