#pragma once

#include <fmt/core.h>

#include <exception>
#include <string>
#include <string_view>
#include <utility>

/// The system log (syslog), one logger for each area of the running cameras.
/// **Threads**: any.
namespace lenslark::Log {

class Logger {
 public:
  explicit constexpr Logger(const char* category) noexcept : category_(category) {}

  template <typename... Arguments>
  void error(fmt::format_string<Arguments...> format, Arguments&&... arguments) const noexcept {
    try {
      write(fmt::format(format, std::forward<Arguments>(arguments)...));
    } catch (const std::exception&) {
      // There is no memory to say it with, and whoever logs is to go on.
    }
  }

 private:
  void write(const std::string& message) const;

  const char* category_;
};

const Logger& capture() noexcept;
const Logger& router() noexcept;
const Logger& feed() noexcept;

/// From now on what is logged also appears on standard error, for programs that a person watches.
void mirrorToStandardError() noexcept;

}  // namespace lenslark::Log
