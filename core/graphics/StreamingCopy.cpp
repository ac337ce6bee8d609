#include "graphics/StreamingCopy.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "graphics/Compositor.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace lenslark {

#if defined(__x86_64__)

namespace {

/// Stores gather to a cache line before they leave: 32 bytes each fill it sooner than 16 would,
/// which took a sixth longer.
constexpr std::size_t lane = sizeof(__m256i);

bool processorSuits() noexcept {
  static const bool suits = __builtin_cpu_supports("avx") != 0;
  return suits;
}

[[gnu::target("avx")]] void streamBytes(const std::uint8_t* from, std::uint8_t* to,
                                        std::size_t bytes) noexcept {
  const std::size_t offset = reinterpret_cast<std::uintptr_t>(to) % lane;
  const std::size_t head = std::min(offset == 0 ? 0 : lane - offset, bytes);
  std::memcpy(to, from, head);
  std::size_t done = head;
  for (; done + lane <= bytes; done += lane) {
    _mm256_stream_si256(reinterpret_cast<__m256i*>(to + done),
                        _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + done)));
  }
  std::memcpy(to + done, from + done, bytes - done);
}

}  // namespace

void streamingCopy(const PixelView& source, const PixelSpan& target) noexcept {
  if (!processorSuits()) return Compositor::copy(source, target);
  if (source.size.empty()) return;
  const std::size_t rowBytes = static_cast<std::size_t>(source.size.width) * 4;
  const auto tight = static_cast<std::ptrdiff_t>(rowBytes);
  if (source.stride == tight && target.stride == tight) {
    streamBytes(source.data, target.data, rowBytes * static_cast<std::size_t>(source.size.height));
  } else {
    for (int y = 0; y < source.size.height; ++y) {
      streamBytes(source.row(y), target.row(y), rowBytes);
    }
  }
  _mm_sfence();
}

#else

void streamingCopy(const PixelView& source, const PixelSpan& target) noexcept {
  Compositor::copy(source, target);
}

#endif

}  // namespace lenslark
