#include "codecs/video/RowFilter.h"

#include <algorithm>
#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace lenslark::video {
namespace {

constexpr int seen = 16;  // samples that eight results are made of

#if defined(__x86_64__)

bool processorSuits() noexcept { return __builtin_cpu_supports("ssse3") != 0; }

/// Eight results of one step.
[[gnu::target("ssse3")]] inline __m128i filtered(const std::uint8_t* samples,
                                                 const std::uint8_t* picks,
                                                 const std::int8_t* weights) noexcept {
  const auto load = [](const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
  };
  const __m128i pairs = _mm_shuffle_epi8(load(samples), load(picks));
  const __m128i sums = _mm_maddubs_epi16(pairs, load(weights));
  const __m128i rounded = _mm_srli_epi16(_mm_add_epi16(sums, _mm_set1_epi16(64)), 7);
  return _mm_packus_epi16(rounded, rounded);
}

#else

bool processorSuits() noexcept { return false; }

#endif

}  // namespace

bool RowFilter::suits(int from, int to) noexcept {
  return processorSuits() && to > 0 && from >= seen && from > to && from <= 2 * to;
}

RowFilter::RowFilter(int from, int to)
    : to_(static_cast<std::size_t>(to)), steps_((to_ + lanes - 1) / lanes) {
  constexpr int fractionBits = 16;
  constexpr int weightBits = 7;
  const std::int64_t stride = (std::int64_t{from} << fractionBits) / to;
  // Centres of samples lie half a sample from the edge, in both rows.
  const std::int64_t first = stride / 2 - (1 << (fractionBits - 1));
  for (std::size_t index = 0; index < steps_.size() * lanes; ++index) {
    const auto result = static_cast<std::int64_t>(std::min(index, to_ - 1));
    const std::int64_t place = first + result * stride;
    const int sample = static_cast<int>(place >> fractionBits);
    const int weight = static_cast<int>(place >> (fractionBits - weightBits)) & 127;
    const bool alone = weight == 0 || sample == from - 1;

    Step& step = steps_[index / lanes];
    const std::size_t lane = index % lanes * 2;
    if (lane == 0) step.start = std::min(sample, from - seen);
    step.picks[lane] = static_cast<std::uint8_t>(sample - step.start);
    step.picks[lane + 1] = static_cast<std::uint8_t>(sample - step.start + (alone ? 0 : 1));
    // 128 is no signed byte: a sample alone counts twice by half.
    step.weights[lane] = static_cast<std::int8_t>(alone ? 64 : 128 - weight);
    step.weights[lane + 1] = static_cast<std::int8_t>(alone ? 64 : weight);
  }
}

#if defined(__x86_64__)

[[gnu::target("ssse3")]] void RowFilter::apply(const std::uint8_t* row,
                                               std::uint8_t* result) const noexcept {
  std::size_t done = 0;
  for (const Step& step : steps_) {
    const __m128i eight = filtered(row + step.start, step.picks.data(), step.weights.data());
    if (done + lanes <= to_) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(result + done), eight);
    } else {
      std::array<std::uint8_t, lanes> last{};
      _mm_storel_epi64(reinterpret_cast<__m128i*>(last.data()), eight);
      std::memcpy(result + done, last.data(), to_ - done);
    }
    done += lanes;
  }
}

#else

void RowFilter::apply(const std::uint8_t*, std::uint8_t*) const noexcept {}

#endif

}  // namespace lenslark::video
