#pragma once

#include <cstddef>
#include <cstdint>

namespace lenslark {

/// Has the processor look up where the pages of memory lie that is written soon, while it is busy
/// with something else: the first store to a page waits for that otherwise, which happens two
/// thousand times in a 1080p frame. One line of each page is enough.
inline void lookUpPages(const std::uint8_t* memory, std::size_t bytes) noexcept {
  constexpr std::size_t page = 4096;
  for (std::size_t at = 0; at < bytes; at += page) __builtin_prefetch(memory + at, 1);
}

}  // namespace lenslark
