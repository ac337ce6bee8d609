#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/SerialQueue.h"
#include "config/ConfigStore.h"
#include "feeds/DeviceFeed.h"
#include "feeds/DeviceStatus.h"
#include "feeds/FeedOverrides.h"
#include "feeds/FeedSet.h"
#include "feeds/LibraryErrands.h"
#include "feeds/SourceFactory.h"
#include "feeds/WantedFeeds.h"
#include "media/MediaLibrary.h"

namespace lenslark {

/// Keeps the running feeds equal to what the configuration and the connected devices ask for.
/// Lives in a shared_ptr; whatever calls it back holds it weakly.
///
/// **Threads**: queue-bound ("lenslark.router"); its operations may be called from any other
/// thread. Nothing on its queue waits for a disk.
class FeedRouter : public std::enable_shared_from_this<FeedRouter> {
 public:
  using Overrides = FeedOverrides;

  struct Dependencies {
    std::shared_ptr<ConfigStore> store;
    std::shared_ptr<MediaLibrary> media;
    std::unique_ptr<DeviceFeed> devices;
    SourceFactory makeSource;
  };

  FeedRouter(Dependencies dependencies, Overrides overrides);
  ~FeedRouter();
  FeedRouter(const FeedRouter&) = delete;
  FeedRouter& operator=(const FeedRouter&) = delete;

  /// Told on the router's queue when statuses or the screen's access have changed: whoever wants to
  /// read them hops off it first. Set before `start`.
  void onChange(std::function<void()> handler);

  /// Feeds what needs no device at once, then looks for devices and returns when they are fed too,
  /// or after three seconds: a tool that hangs does not hold up the rest. Ends early on `stop`.
  void start();

  /// Ends every source and closes every file; their writer pid is 0 then. Waits for sources and
  /// errands, but not longer than half a second: those that hang are left behind. Once.
  void stop();

  std::uint64_t framesCaptured() const;
  std::vector<std::string> sourceErrors() const;
  std::vector<DeviceStatus> statuses() const;
  std::optional<bool> screenAccess() const;

  /// How often windows are looked after: thirty times a second while one moves, four times while
  /// none does, never (0) when nothing follows one. Times in seconds of the uptime clock.
  static double trackInterval(bool followsWindows, double now, double lastMove) noexcept;

 private:
  template <typename... Arguments>
  auto weakly(void (FeedRouter::*operation)(Arguments...));

  void prepare();
  void observeConfig();
  void findDevices();
  void loadConfig();
  void take(ConfigFile config, MediaFiles media, std::string mediaUnread);
  void take(const DeviceRegistry::Snapshot& snapshot);
  void reconcile();
  void refreshStatuses();
  void beat();
  void retryFailures();
  void track();
  void tracked(bool moved);
  void retime();
  std::vector<std::future<void>> close();

  // Constant after construction.
  const std::shared_ptr<ConfigStore> store_;
  const std::shared_ptr<MediaLibrary> media_;
  const FeedOverrides overrides_;
  const std::shared_ptr<DeviceFeed> devices_;
  const std::shared_ptr<SerialQueue> queue_;
  std::function<void()> onChange_;  // after `start`

  // Where work is done that may wait.
  SerialQueue lookups_;
  SerialQueue discovery_;
  SerialQueue tracking_;
  LibraryErrands errands_;

  // The queue's.
  FeedSituation situation_;
  std::optional<bool> screenAccess_;
  FeedSet feeds_;
  std::vector<DeviceStatus> statuses_;
  std::optional<bool> toldScreenAccess_;
  bool mediaMissing_ = false;
  std::uint64_t beats_ = 0;
  std::uint64_t beatsOpening_ = 0;  // while some file was being opened
  double trackInterval_ = 0;
  double lastMove_ = -std::numeric_limits<double>::infinity();
  bool trackingNow_ = false;
  std::optional<ConfigStore::Token> observer_;

  std::optional<RepeatingTimer> heartbeatTimer_;
  std::optional<RepeatingTimer> trackTimer_;

  std::atomic<bool> stopped_ = false;
  std::mutex scanMutex_;  // guards scanned_
  std::condition_variable scanDone_;
  bool scanned_ = false;
};

}  // namespace lenslark
