#include "commands/Failure.h"

#include <cstdio>
#include <new>

#include "base/Text.h"

namespace lenslark::Failure {

int report(const std::exception& error) noexcept {
  // One call: lines of several processes on one terminal stay whole. Line feeds stay, because tools
  // explain themselves on several.
  try {
    std::fprintf(stderr, "error: %s\n", Text::printable(error.what(), "\n\t").c_str());
  } catch (const std::bad_alloc&) {
    std::fputs("error: there is no memory left; raise its limit (`ulimit -v`)\n", stderr);
  }
  const auto* own = dynamic_cast<const Error*>(&error);
  return own != nullptr ? own->exitStatus() : Error::generalFailure;
}

}  // namespace lenslark::Failure
