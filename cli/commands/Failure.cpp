#include "commands/Failure.h"

#include <cstdio>

#include "base/Text.h"

namespace lenslark::Failure {

int report(const std::exception& error) noexcept {
  // One call: lines of several processes on one terminal stay whole. Line feeds stay, because tools
  // explain themselves on several.
  std::fprintf(stderr, "error: %s\n", Text::printable(error.what(), "\n\t").c_str());
  const auto* own = dynamic_cast<const Error*>(&error);
  return own != nullptr ? own->exitStatus() : Error::generalFailure;
}

}  // namespace lenslark::Failure
