// What a frame of the test pattern costs, beside a plain copy of one. Both take turns in small
// batches, so that they see the same machine.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "graphics/PixelBuffer.h"
#include "sources/TestPattern.h"

namespace lenslark {
namespace {

constexpr Size hd{1280, 720};
constexpr int batch = 10;
constexpr int turns = 60;
constexpr double limit = 2;

/// A letter of the size and shape that the caption's letters have at this height: a solid stem in
/// a box whose edges are half covered.
GlyphMask letter() {
  GlyphMask mask{20, 27, 1, 27, 21.7, std::vector<std::uint8_t>(20 * 27, 0)};
  for (std::size_t i = 0; i < mask.coverage.size(); ++i) {
    const auto x = i % 20;
    if (x >= 6 && x < 14) mask.coverage[i] = x == 6 || x == 13 ? 128 : 255;
  }
  return mask;
}

double cpuSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

template <typename Body>
double costOfBatch(Body&& body) {
  const double before = cpuSeconds();
  for (int i = 0; i < batch; ++i) body();
  return (cpuSeconds() - before) / batch;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void testPatternFrame(benchmark::State& state) {
  TestPattern pattern(hd, "lenslark://test-pattern");
  pattern.setLetters(std::vector(TestPattern::captionText.size(), letter()),
                     std::vector(TestPattern::captionDigits.size(), letter()));
  PixelBuffer frame(hd, true);
  PixelBuffer copy(hd, true);
  std::uint64_t number = 0;
  const auto ours = [&] { pattern.draw(frame.span(), ++number, "12:34:56.789"); };
  const auto peer = [&] {
    std::memcpy(copy.span().data, frame.view().data, 1280 * 720 * 4);
    benchmark::ClobberMemory();
  };
  costOfBatch(ours);
  costOfBatch(peer);
  for (auto _ : state) ours();
  std::vector<double> oursCosts;
  std::vector<double> peerCosts;
  for (int turn = 0; turn < turns; ++turn) {
    oursCosts.push_back(costOfBatch(ours));
    peerCosts.push_back(costOfBatch(peer));
  }
  state.counters["ratio"] = median(oursCosts) / median(peerCosts);
  state.counters["limit"] = limit;
}
BENCHMARK(testPatternFrame);

}  // namespace
}  // namespace lenslark
