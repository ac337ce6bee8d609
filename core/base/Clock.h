#pragma once

#include <chrono>
#include <cstdint>

namespace lenslark {

/// A date as the files store it: whole seconds since 1970, UTC.
using Date = std::chrono::sys_seconds;

namespace Clock {

/// Nanoseconds of the system's uptime clock (CLOCK_MONOTONIC), the clock of the frame files.
std::uint64_t uptimeNanoseconds() noexcept;

/// The same clock in seconds.
double uptimeSeconds() noexcept;

/// The present date, cut to the second.
Date now() noexcept;

}  // namespace Clock
}  // namespace lenslark
