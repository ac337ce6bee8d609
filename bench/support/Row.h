#pragma once

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

/// A row of the benchmarks' table: what ours costs beside its peer, or beside the limit it must
/// keep within. scripts/bench.py reads it from the program's JSON.
namespace lenslark::bench {

/// Of a row that shows what something costs without a promise.
inline constexpr double noTarget = 0;

/// What a row says in words, and the largest ratio of ours to the peer that passes.
struct RowText {
  std::string what;
  std::string peer;
  double target = 1;
  std::string unit = "s";  ///< "s" is shown as µs, ms or s; anything else as it stands.
};

inline double seconds(const timespec& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

inline double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// CPU seconds of the calling thread.
inline double threadCpu() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return seconds(time);
}

/// CPU seconds of all threads.
inline double processCpu() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return seconds(time);
}

/// CPU seconds of the children that have ended.
inline double childrenCpu() {
  rusage usage{};
  ::getrusage(RUSAGE_CHILDREN, &usage);
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

inline double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

/// What `times` calls of `body` cost each, by `clock`.
template <typename Body>
double costOf(double (*clock)(), int times, Body&& body) {
  const double before = clock();
  for (int i = 0; i < times; ++i) body();
  return (clock() - before) / times;
}

/// A finished row.
inline void report(benchmark::State& state, const RowText& text, double ours, double peer) {
  state.counters["ours"] = ours;
  state.counters["peer"] = peer;
  state.counters["target"] = text.target;
  state.SetLabel(text.what + "|" + text.peer + "|" + text.unit);
}

/// A row that cannot be measured here.
inline void skip(benchmark::State& state, const std::string& what, const std::string& reason) {
  state.SkipWithError(("skip|" + what + "|" + reason).c_str());
}

/// How a comparison is run: in turns, each turn the mean of a batch.
struct Turns {
  double (*clock)() = threadCpu;
  int batch = 10;
  int turns = 40;
};

/// Runs ours and the peer in turn, so that both see the same machine, and reports their medians.
template <typename Ours, typename Peer>
void compare(benchmark::State& state, const RowText& text, const Turns& how, Ours&& ours,
             Peer&& peer) {
  ours();
  peer();
  std::vector<double> oursCosts;
  std::vector<double> peerCosts;
  for (auto _ : state) {
    for (int turn = 0; turn < how.turns; ++turn) {
      oursCosts.push_back(costOf(how.clock, how.batch, ours));
      peerCosts.push_back(costOf(how.clock, how.batch, peer));
    }
  }
  report(state, text, median(oursCosts), median(peerCosts));
}

}  // namespace lenslark::bench

/// Registers a function that makes one row.
#define LENSLARK_ROW(function) BENCHMARK(function)->Iterations(1)
