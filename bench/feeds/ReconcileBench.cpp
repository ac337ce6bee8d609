// What the router's queue is busy with when something changed on a machine with a hundred devices.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "base/Uuid.h"
#include "feeds/FeedSet.h"
#include "feeds/PlainSlots.h"
#include "support/Devices.h"
#include "support/FakeSources.h"
#include "support/Row.h"

namespace lenslark::bench {
namespace {

constexpr int deviceCount = 100;
constexpr double longest = 0.005;
constexpr int rounds = 20;

/// A router's work without its queue: the feeds of a hundred simulators that show one picture.
class Machine {
 public:
  Machine() {
    situation.globalPath = memoryPath("global");
    situation.overrides.source = SourceSpec{SourceSpec::Pattern{}};
    for (int i = 0; i < deviceCount; ++i) {
      situation.devices.push_back(simulator(Uuid::make(), "iPhone " + std::to_string(i)));
    }
  }
  ~Machine() {
    const auto paths = feeds.openPaths();
    for (auto& stopped : feeds.close()) stopped.wait();
    for (const auto& path : paths) ::unlink(path.c_str());
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  void reconcile() {
    feeds.apply(wantedFeeds(situation));
    benchmark::DoNotOptimize(deviceStatuses(situation, feeds.openPaths()));
  }

  FeedSituation situation;
  std::atomic<int> sources = 0;
  FeedSet feeds{
      std::make_shared<SerialQueue>("bench"),
      {.makeSource =
           [this](const SourceDescription&) {
             ++sources;
             return std::make_unique<ManualSource>(std::make_shared<ManualSource::Controls>());
           },
       .onShow = [](const auto&) {}}};
};

/// The median of what a reconcile after `change` costs, beside five milliseconds.
template <typename Change>
void reconcileAfter(benchmark::State& state, const std::string& what, Change&& change) {
  Machine machine;
  machine.reconcile();
  std::vector<double> costs;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      change(machine.situation, round);
      costs.push_back(costOf(threadCpu, 1, [&] { machine.reconcile(); }));
    }
  }
  report(state, {"reconcile of 100 devices, " + what, "limit"}, median(costs), longest);
}

void nothingNew(benchmark::State& state) {
  reconcileAfter(state, "nothing new", [](FeedSituation&, int) {});
}

void settingChanged(benchmark::State& state) {
  reconcileAfter(state, "a setting changed", [](FeedSituation& situation, int round) {
    situation.config.settings.fill = round % 2 == 0;
  });
}

void sourceChanged(benchmark::State& state) {
  reconcileAfter(state, "another source for all", [](FeedSituation& situation, int round) {
    situation.overrides.source =
        round % 2 == 0 ? SourceSpec{SourceSpec::Display{}} : SourceSpec{SourceSpec::Pattern{}};
  });
}

void oneDeviceMore(benchmark::State& state) {
  reconcileAfter(state, "a device came or went", [](FeedSituation& situation, int round) {
    if (round % 2 == 0) {
      situation.devices.push_back(simulator(Uuid::make(), "iPhone"));
    } else {
      situation.devices.pop_back();
    }
  });
}

void allDevicesNew(benchmark::State& state) {
  std::vector<double> costs;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      Machine machine;
      costs.push_back(costOf(threadCpu, 1, [&] { machine.reconcile(); }));
    }
  }
  report(state, {"reconcile of 100 devices, all of them new", "limit"}, median(costs), longest);
}

/// However many cameras show a source, it runs once.
void oneSourceForAll(benchmark::State& state) {
  for (auto _ : state) {
    Machine machine;
    for (int i = 0; i < deviceCount; ++i) {
      machine.situation.devices.push_back(simulator(Uuid::make(), "iPad"));
    }
    machine.reconcile();
    report(state, {"decodes for 200 feeds of one source", "limit", 1, ""}, machine.sources, 1);
  }
}

LENSLARK_ROW(nothingNew);
LENSLARK_ROW(settingChanged);
LENSLARK_ROW(sourceChanged);
LENSLARK_ROW(oneDeviceMore);
LENSLARK_ROW(allDevicesNew);
LENSLARK_ROW(oneSourceForAll);

}  // namespace
}  // namespace lenslark::bench
