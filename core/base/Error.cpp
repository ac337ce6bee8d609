#include "base/Error.h"

namespace lenslark {
namespace {

/// what() ends at the first NUL byte, and agents may name files and devices with one: each shows as
/// U+FFFD.
std::string withoutNulBytes(const std::string& message) {
  constexpr std::string_view replacement = "\xEF\xBF\xBD";
  std::string text;
  text.reserve(message.size());
  for (const char& character : message) {
    text += character == '\0' ? replacement : std::string_view(&character, 1);
  }
  return text;
}

}  // namespace

Error::Error(const std::string& message, std::string_view code, int exitStatus)
    : std::runtime_error(withoutNulBytes(message)), code_(code), exitStatus_(exitStatus) {}

// Out of line: the program and the codec modules then share one type for catching.
Error::~Error() = default;

}  // namespace lenslark
