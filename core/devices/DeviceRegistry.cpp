#include "devices/DeviceRegistry.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

#include "base/SerialQueue.h"

namespace lenslark {

struct DeviceRegistry::State : std::enable_shared_from_this<State> {
  State(DeviceDiscovery discovery, const Timing& scanTiming)
      : timing(scanTiming), scanner(std::move(discovery)) {}

  /// Runs a scan unless one is under way: a slow one makes the timer skip beats, not queue them.
  void beginScan(DeviceScanner::Pace pace);
  void scan(DeviceScanner::Pace pace);
  void endScan();

  const Timing timing;
  ChangeHandler onChange;  // constant after the start

  DeviceScanner scanner;  // touched by the one scan that may be under way

  mutable std::mutex mutex;
  std::condition_variable scanEnded;
  // Guarded by `mutex`.
  Snapshot published;
  bool scanning = false;
  bool stopped = false;

  // Carries the timer, and nothing that takes long.
  SerialQueue queue{"lenslark.devices"};
  std::optional<RepeatingTimer> timer;  // constant after construction
};

void DeviceRegistry::State::beginScan(DeviceScanner::Pace pace) {
  {
    const std::lock_guard lock(mutex);
    if (scanning || stopped) return;
    scanning = true;
  }
  runInBackground([self = shared_from_this(), pace] {
    // The flag must fall whatever happens, or no scan would ever run again.
    struct Ending {
      State& state;
      ~Ending() { state.endScan(); }
    } const ending{*self};
    self->scan(pace);
  });
}

void DeviceRegistry::State::scan(DeviceScanner::Pace pace) {
  const bool news = scanner.scan(pace, std::chrono::steady_clock::now());
  {
    const std::lock_guard lock(mutex);
    if (stopped) return;
    published = scanner.snapshot();
  }
  if (news && onChange) onChange(scanner.snapshot());
}

void DeviceRegistry::State::endScan() {
  const std::lock_guard lock(mutex);
  scanning = false;
  scanEnded.notify_all();
}

DeviceRegistry::DeviceRegistry(Screen* screen)
    : DeviceRegistry(DeviceDiscovery::ofSystem(screen)) {}

DeviceRegistry::DeviceRegistry(DeviceDiscovery discovery, Timing timing)
    : state_(std::make_shared<State>(std::move(discovery), timing)) {
  state_->timer.emplace(state_->queue, [weak = std::weak_ptr(state_)] {
    if (const auto self = weak.lock()) self->beginScan(DeviceScanner::Pace::paced);
  });
}

DeviceRegistry::~DeviceRegistry() { stop(); }

void DeviceRegistry::onChange(ChangeHandler handler) { state_->onChange = std::move(handler); }

void DeviceRegistry::start() {
  state_->beginScan(DeviceScanner::Pace::forced);
  {
    std::unique_lock lock(state_->mutex);
    state_->scanEnded.wait_for(lock, state_->timing.patience,
                               [&] { return !state_->scanning || state_->stopped; });
    if (state_->stopped) return;
  }
  state_->timer->schedule(state_->timing.interval, state_->timing.interval);
}

void DeviceRegistry::stop() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->stopped = true;
    state_->scanEnded.notify_all();
  }
  state_->timer->stop();
}

DeviceRegistry::Snapshot DeviceRegistry::snapshot() const {
  const std::lock_guard lock(state_->mutex);
  return state_->published;
}

}  // namespace lenslark
