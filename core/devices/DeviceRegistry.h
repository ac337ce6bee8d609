#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "devices/ConnectedDevice.h"
#include "platform/Screen.h"

namespace lenslark {

/// Keeps the list of connected devices and the windows that show them, and tells of changes.
///
/// **Threads**: any. Scans run child processes on the blocking lane; they never hold up a caller
/// of `snapshot`. `onChange` is called on a scan's thread with no lock held.
class DeviceRegistry {
 public:
  struct Snapshot {
    std::vector<ConnectedDevice> devices;
    std::optional<ScreenContent> content;
    /// Whether the screen can be filmed; nothing while that is unknown.
    std::optional<bool> screenAccess;
  };
  using ChangeHandler = std::function<void(const Snapshot&)>;

  /// `screen` may be null where there is none; it must outlive the registry.
  explicit DeviceRegistry(Screen* screen);
  ~DeviceRegistry();

  /// Set before `start`.
  void onChange(ChangeHandler handler);

  /// Scans once and waits for that, then every two seconds.
  void start();
  void stop();

  Snapshot snapshot() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
