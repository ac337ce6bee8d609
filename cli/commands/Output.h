#pragma once

#include <exception>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

/// Standard output. Everything is written at once, so that a reader at the other end of a pipe
/// never waits for a buffer to fill.
namespace lenslark::Output {

/// Nobody reads standard output any more (`lenslark devices | head -1`): a command ends quietly.
class Closed final : public std::exception {
 public:
  const char* what() const noexcept override { return "standard output is closed"; }
};

/// Standard descriptors that the process was started without lead nowhere from now on. Else the
/// next file that is opened would take their place, and what is printed would end up in it.
void holdStandardDescriptors() noexcept;

/// From now on a write to a pipe without a reader, and one beyond the size that files may have here
/// (`ulimit -f`), fails instead of ending the process. Child processes are not affected.
void surviveFailedWrites();

/// **Fails** with Closed, or with std::system_error when the text cannot be written, for instance
/// to a full disk.
void print(std::string_view text);
/// One line: control characters in it are shown as "?", and a line feed stands behind it.
void printLine(std::string_view line);
/// Indented, keys sorted.
void printJSON(const nlohmann::json& value);

}  // namespace lenslark::Output
