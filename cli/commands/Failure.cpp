#include "commands/Failure.h"

#include <cstdio>

namespace lenslark::Failure {

int report(const std::exception& error) noexcept {
  // One call: lines of several processes on one terminal stay whole.
  std::fprintf(stderr, "error: %s\n", error.what());
  const auto* own = dynamic_cast<const Error*>(&error);
  return own != nullptr ? own->exitStatus() : Error::generalFailure;
}

}  // namespace lenslark::Failure
