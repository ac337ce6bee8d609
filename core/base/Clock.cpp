#include "base/Clock.h"

#include <ctime>

namespace lenslark::Clock {

std::uint64_t uptimeNanoseconds() noexcept {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
         static_cast<std::uint64_t>(time.tv_nsec);
}

double uptimeSeconds() noexcept { return static_cast<double>(uptimeNanoseconds()) / 1e9; }

Date now() noexcept {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

}  // namespace lenslark::Clock
