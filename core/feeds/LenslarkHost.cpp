#include "feeds/LenslarkHost.h"

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <utility>

#include "base/SerialQueue.h"
#include "feeds/FeedRouter.h"

namespace lenslark {
namespace {

/// How long a released host waits for a listener that is being told.
constexpr std::chrono::milliseconds longestFarewell(500);

}  // namespace

struct LenslarkHost::State : std::enable_shared_from_this<State> {
  State(std::shared_ptr<ConfigStore> configStore, std::shared_ptr<MediaLibrary> library,
        Screen* system)
      : store(std::move(configStore)),
        media(std::move(library)),
        screen(system),
        notices("lenslark.host", SerialQueue::Lane::blocking) {}

  std::shared_ptr<FeedRouter> running() const {
    const std::lock_guard lock(mutex);
    return router;
  }

  /// Whoever listens may ask for every property and take its time: it is told elsewhere.
  void tellStatus() {
    notices.post([weak = weak_from_this()] {
      const auto state = weak.lock();
      if (!state) return;
      StatusHandler listener;
      {
        const std::lock_guard lock(state->mutex);
        listener = state->handler;
      }
      if (listener) listener();
    });
  }

  const std::shared_ptr<ConfigStore> store;
  const std::shared_ptr<MediaLibrary> media;
  Screen* const screen;
  SerialQueue notices;

  mutable std::mutex mutex;  // guards all below
  std::shared_ptr<FeedRouter> router;
  StatusHandler handler;
};

LenslarkHost::LenslarkHost(std::shared_ptr<ConfigStore> store, std::shared_ptr<MediaLibrary> media,
                           Screen* screen)
    : state_(std::make_shared<State>(std::move(store), std::move(media), screen)) {}

LenslarkHost::~LenslarkHost() {
  stop();
  onStatusChange(nullptr);
  if (state_->notices.isCurrent()) return;
  std::promise<void> quiet;
  const auto result = quiet.get_future();
  state_->notices.post([quiet = std::move(quiet)]() mutable { quiet.set_value(); });
  result.wait_for(longestFarewell);
}

void LenslarkHost::onStatusChange(StatusHandler handler) {
  const std::lock_guard lock(state_->mutex);
  state_->handler = std::move(handler);
}

void LenslarkHost::start(const Overrides& overrides) {
  std::shared_ptr<FeedRouter> router;
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->router) return;
    router = std::make_shared<FeedRouter>(
        FeedRouter::Dependencies{.store = state_->store,
                                 .media = state_->media,
                                 .devices = connectedDevices(state_->screen),
                                 .makeSource = systemSources(state_->screen)},
        overrides);
    state_->router = router;
  }
  // What changes while the router starts is told once, at the end.
  const auto started = std::make_shared<std::atomic<bool>>(false);
  router->onChange([weak = std::weak_ptr(state_), started] {
    const auto state = weak.lock();
    if (state && *started) state->tellStatus();
  });
  router->start();
  *started = true;
  state_->tellStatus();
}

void LenslarkHost::stop() {
  const auto router = state_->running();
  if (!router) return;
  router->stop();
  const std::lock_guard lock(state_->mutex);
  if (state_->router == router) state_->router = nullptr;
}

bool LenslarkHost::isRunning() const { return state_->running() != nullptr; }

std::uint64_t LenslarkHost::framesCaptured() const {
  const auto router = state_->running();
  return router ? router->framesCaptured() : 0;
}

std::optional<bool> LenslarkHost::screenAccess() const {
  const auto router = state_->running();
  return router ? router->screenAccess() : std::nullopt;
}

std::vector<DeviceStatus> LenslarkHost::devices() const {
  const auto router = state_->running();
  return router ? router->statuses() : std::vector<DeviceStatus>();
}

std::vector<std::string> LenslarkHost::sourceErrors() const {
  const auto router = state_->running();
  return router ? router->sourceErrors() : std::vector<std::string>();
}

}  // namespace lenslark
