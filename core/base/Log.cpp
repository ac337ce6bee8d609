#include "base/Log.h"

#include <syslog.h>

#include <atomic>
#include <cstdio>

#include "base/Text.h"

namespace lenslark::Log {
namespace {

std::atomic<bool> mirrored = false;

}  // namespace

void Logger::write(const std::string& message) const {
  ::syslog(LOG_USER | LOG_ERR, "lenslark[%s]: %s", category_, message.c_str());
  if (mirrored) std::fprintf(stderr, "lenslark: %s\n", Text::printable(message).c_str());
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
