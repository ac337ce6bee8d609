#include "base/Error.h"

namespace lenslark {

Error::Error(const std::string& message, std::string_view code, int exitStatus)
    : std::runtime_error(message), code_(code), exitStatus_(exitStatus) {}

// Out of line: the program and the codec modules then share one type for catching.
Error::~Error() = default;

}  // namespace lenslark
