#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/ConfigStore.h"
#include "feeds/DeviceStatus.h"
#include "feeds/FeedOverrides.h"
#include "media/MediaLibrary.h"
#include "platform/Screen.h"

namespace lenslark {

/// Runs the cameras: owns the router that keeps every feed going, and answers for its status.
///
/// **Threads**: any, but not from inside a source or a sink.
/// **Owns** the router while it runs, and a share of the store and the library; the screen must
/// outlive it.
class LenslarkHost {
 public:
  using Overrides = FeedOverrides;
  using StatusHandler = std::function<void()>;

  /// Not running. `screen` may be null where there is none.
  LenslarkHost(std::shared_ptr<ConfigStore> store, std::shared_ptr<MediaLibrary> media,
               Screen* screen);
  /// Stops. The status handler is not called any more.
  ~LenslarkHost();
  LenslarkHost(const LenslarkHost&) = delete;
  LenslarkHost& operator=(const LenslarkHost&) = delete;

  /// Called once when `start` is done and then whenever what `devices` or `screenAccess` return has
  /// changed: one call at a time, on a thread of its own, where every property may be read. Set it
  /// before `start`.
  void onStatusChange(StatusHandler handler);

  /// Feeds every connected device and the global feed from now on. Returns when the devices that
  /// are connected now are fed, or after a few seconds when finding them takes longer. Does nothing
  /// while it runs already.
  void start(const Overrides& overrides = {});

  /// Ends every source and closes every feed file (their writer pid is 0 then). Takes less than a
  /// second, whatever a source is doing.
  void stop();

  bool isRunning() const;

  std::uint64_t framesCaptured() const;           ///< By all running sources; 0 while stopped.
  std::optional<bool> screenAccess() const;       ///< Nothing while unknown or stopped.
  std::vector<DeviceStatus> devices() const;      ///< Empty while stopped.
  std::vector<std::string> sourceErrors() const;  ///< Empty while stopped.

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
