#include "commands/ProcessLimits.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>

namespace lenslark::ProcessLimits {

void allowMoreDescriptors() noexcept {
  constexpr rlim_t plenty = 65536;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= plenty) return;
  limit.rlim_cur = std::min(limit.rlim_max, plenty);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

void spareAddressSpace() noexcept {
  rlimit limit{};
  if (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
    ::mallopt(M_ARENA_MAX, 1);
  }
}

}  // namespace lenslark::ProcessLimits
