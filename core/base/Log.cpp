#include "base/Log.h"

#include <poll.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>

#include "base/Text.h"

namespace lenslark::Log {
namespace {

std::atomic<bool> mirrored = false;

/// A terminal that is held (Ctrl-S) and a pipe that nobody reads hold up no camera: what they do
/// not take soon stands in the system's log alone.
void mirror(std::string_view line) noexcept {
  constexpr int patience = 100;  // milliseconds
  while (!line.empty()) {
    pollfd output{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&output, 1, patience) != 1 || (output.revents & POLLOUT) == 0) return;
    // So much is taken at once where anything is.
    const ssize_t count =
        ::write(STDERR_FILENO, line.data(), std::min<std::size_t>(line.size(), PIPE_BUF));
    if (count <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

void Logger::write(const std::string& message) const {
  ::syslog(LOG_USER | LOG_ERR, "lenslark[%s]: %s", category_, message.c_str());
  if (mirrored) mirror("lenslark: " + Text::printable(message) + "\n");
}

const Logger& capture() noexcept {
  static constexpr Logger logger("capture");
  return logger;
}

const Logger& router() noexcept {
  static constexpr Logger logger("router");
  return logger;
}

const Logger& feed() noexcept {
  static constexpr Logger logger("feed");
  return logger;
}

void mirrorToStandardError() noexcept { mirrored = true; }

}  // namespace lenslark::Log
