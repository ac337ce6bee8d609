// What the router's queue is busy with when something changed on a machine with a hundred devices.

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <barrier>
#include <latch>
#include <memory>
#include <set>
#include <string>
#include <vector>

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

/// Shows one picture for good, as an image does.
class PictureSource final : public FrameSource {
 public:
  ContentKind kind() const noexcept override { return ContentKind::still; }
  void start(Emit emit) override { emit(plainPicture({1280, 720}, {200, 100, 50, 255})); }
  void stop() override {}
};

/// CPU seconds of the threads that carry timely queues. Nothing else runs on them here.
class QueueCpu {
 public:
  QueueCpu() {
    // Both are found when two queues are busy at once.
    std::barrier together(2);
    const auto ask = [&](clockid_t& clock) {
      together.arrive_and_wait();
      ::pthread_getcpuclockid(::pthread_self(), &clock);
    };
    SerialQueue other("bench.other");
    std::latch asked(1);
    other.post([&] {
      ask(clocks_[0]);
      asked.count_down();
    });
    SerialQueue("bench.one").sync([&] { ask(clocks_[1]); });
    asked.wait();
  }

  double now() const {
    double sum = 0;
    for (const clockid_t clock : clocks_) {
      timespec time{};
      ::clock_gettime(clock, &time);
      sum += seconds(time);
    }
    return sum;
  }

 private:
  std::array<clockid_t, 2> clocks_{};
};

/// The feeds of a hundred simulators that show one picture, and their queue.
class Machine {
 public:
  Machine() {
    situation.globalPath = memoryPath("global");
    situation.overrides.source = SourceSpec{SourceSpec::Pattern{}};
    for (int i = 0; i < deviceCount; ++i) {
      situation.devices.push_back(simulator(Uuid::make(), "iPhone " + std::to_string(i)));
    }
    feeds_->onFile([this] { status(); });
  }
  ~Machine() {
    std::set<std::string> paths;
    for (auto& stopped : queue_->sync([&] {
           paths = feeds_->openPaths();
           return feeds_->close();
         })) {
      stopped.wait();
    }
    queue_->sync([&] { feeds_.reset(); });
    for (const auto& path : paths) ::unlink(path.c_str());
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  /// What a router does, but for telling. Returns the CPU seconds of it when all files are as they
  /// should be.
  double reconcile() {
    double cost = 0;
    queue_
        ->sync([&] {
          cost = costOf(threadCpu, 1, [&] {
            feeds_->apply(wantedFeeds(situation));
            status();
          });
          return feeds_->settled();
        })
        .wait();
    return cost;
  }

  /// The CPU seconds of the queue for it and for all that comes of it.
  double costOfAll(const QueueCpu& cpu) {
    const double before = cpu.now();
    reconcile();
    queue_->sync([] {});
    return cpu.now() - before;
  }

  FeedSituation situation;
  std::atomic<int> sources = 0;

 private:
  void status() {
    if (feeds_->isOpening()) return;
    benchmark::DoNotOptimize(deviceStatuses(situation, feeds_->openPaths()));
  }

  std::shared_ptr<SerialQueue> queue_ = std::make_shared<SerialQueue>("bench");
  std::shared_ptr<FeedSet> feeds_ = std::make_shared<FeedSet>(
      queue_, FeedSet::Hooks{.makeSource =
                                 [this](const SourceDescription&) {
                                   ++sources;
                                   return std::make_unique<PictureSource>();
                                 },
                             .onShow = [](const auto&) {},
                             .owner = [this]() -> std::weak_ptr<void> { return feeds_; }});
};

/// The median of what a reconcile after `change` costs, beside five milliseconds.
template <typename Change>
void reconcileAfter(benchmark::State& state, const std::string& what, Change&& change) {
  const QueueCpu cpu;
  Machine machine;
  machine.reconcile();
  std::vector<double> costs;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      change(machine.situation, round);
      costs.push_back(machine.costOfAll(cpu));
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
      costs.push_back(machine.reconcile());
    }
  }
  report(state, {"reconcile of 100 devices, all of them new", "limit"}, median(costs), longest);
}

/// The files are opened elsewhere, and each is taken up by the queue when it is open.
void untilAllAreFed(benchmark::State& state) {
  const QueueCpu cpu;
  std::vector<double> costs;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      Machine machine;
      costs.push_back(machine.costOfAll(cpu));
    }
  }
  report(state, {"the same and 100 times one file that is open, in pieces", "the limit", noTarget},
         median(costs), longest);
}

void allDevicesGone(benchmark::State& state) {
  const QueueCpu cpu;
  std::vector<double> costs;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      Machine machine;
      machine.reconcile();
      machine.situation.devices.clear();
      costs.push_back(machine.costOfAll(cpu));
    }
  }
  report(state, {"reconcile of 100 devices, all of them gone", "limit"}, median(costs), longest);
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
LENSLARK_ROW(untilAllAreFed);
LENSLARK_ROW(allDevicesGone);
LENSLARK_ROW(oneSourceForAll);

}  // namespace
}  // namespace lenslark::bench
