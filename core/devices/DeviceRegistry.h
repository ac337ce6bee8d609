#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "devices/ConnectedDevice.h"
#include "devices/DeviceScanner.h"
#include "platform/Screen.h"

namespace lenslark {

/// Keeps the list of connected devices and the windows that show them, and tells of changes.
///
/// **Threads**: any. Scans run child processes on the blocking lane, one scan at a time; none
/// holds up a caller of `snapshot` or `stop`, however long a tool hangs. `onChange` is called on a
/// scan's thread with no lock held.
class DeviceRegistry {
 public:
  using Snapshot = DeviceSnapshot;
  using ChangeHandler = std::function<void(const Snapshot&)>;

  struct Timing {
    std::chrono::milliseconds interval = std::chrono::seconds(2);  ///< From scan to scan.
    /// How long a start waits for its first scan.
    std::chrono::milliseconds patience = std::chrono::seconds(5);
  };

  /// `screen` may be null where there is none; it must outlive the registry and a scan that is
  /// under way when the registry ends.
  explicit DeviceRegistry(Screen* screen);
  explicit DeviceRegistry(DeviceDiscovery discovery) : DeviceRegistry(std::move(discovery), {}) {}
  DeviceRegistry(DeviceDiscovery discovery, Timing timing);
  ~DeviceRegistry();
  DeviceRegistry(const DeviceRegistry&) = delete;
  DeviceRegistry& operator=(const DeviceRegistry&) = delete;

  /// Set before `start`.
  void onChange(ChangeHandler handler);

  /// Scans once and waits for that, then again and again. The wait ends early with `stop`, and when
  /// its patience does: what a tool that hangs has to tell is then published when it comes.
  void start();

  /// No scan begins any more, and what a scan under way finds is not published. Does not wait for
  /// it; a call of the change handler that had begun may still be going on.
  void stop();

  Snapshot snapshot() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
