#pragma once

#include <future>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "base/SerialQueue.h"
#include "config/ConfigStore.h"
#include "devices/ConnectedDevice.h"
#include "media/MediaLibrary.h"

namespace lenslark {

/// What running cameras leave in the configuration and the library: devices that were seen, media
/// that was shown, garbage that is taken away. Done later, one after the other, where it may wait
/// for a disk or a lock. None of it matters enough to stop a camera: a failure is logged, once.
///
/// **Threads**: any.
/// **Owns** a share of the store and the library: an errand that hangs outlives everybody else.
class LibraryErrands {
 public:
  LibraryErrands(std::shared_ptr<ConfigStore> store, std::shared_ptr<MediaLibrary> media);
  ~LibraryErrands();

  /// Notes that these devices are connected, and forgets those not seen for 90 days.
  void remember(std::vector<ConnectedDevice> devices);
  void touch(std::set<std::string> mediaIDs);
  /// Keeps what the configuration names and `shown`, and everything while settings that could not
  /// be read, or a copy of such, may name more.
  void collectGarbage(std::set<std::string> shown);

  /// Drops what has not begun. The result is ready when the errand that has begun is done.
  std::future<void> finish();

 private:
  struct State;
  void post(std::move_only_function<void(State&)> errand);

  const std::shared_ptr<State> state_;
  SerialQueue queue_;
};

}  // namespace lenslark
