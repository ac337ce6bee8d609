#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "devices/AndroidEmulator.h"
#include "devices/ConnectedDevice.h"
#include "devices/Simulator.h"
#include "platform/Screen.h"

namespace lenslark {

/// What is known of the connected devices at one moment.
struct DeviceSnapshot {
  std::vector<ConnectedDevice> devices;  ///< By name, then by key.
  std::optional<ScreenContent> content;
  /// Whether the screen can be filmed; nothing while that is unknown.
  std::optional<bool> screenAccess;
};

/// Who is asked what is there. Each may take long.
struct DeviceDiscovery {
  /// These two may throw: the devices known before then stay.
  std::function<std::vector<Simulator::Device>()> simulators;
  std::function<std::vector<AndroidEmulator::Process>()> emulators;
  /// Nothing where the screen cannot be seen.
  std::function<std::optional<ScreenContent>()> screenContent;

  /// The system's tools, and `screen`, which may be null and must outlive the discovery.
  static DeviceDiscovery ofSystem(Screen* screen);
};

/// How often each question may be asked: every answer costs a child process or a visit to the
/// display server. Pure functions of the instants of the last questions.
namespace ScanPacing {

using Instant = std::chrono::steady_clock::time_point;

struct LastAsked {
  Instant simulators = Instant::min();
  Instant emulators = Instant::min();
  Instant screen = Instant::min();
};

/// On every scan, but seldom once it was refused.
bool screenIsDue(const LastAsked& last, std::optional<bool> screenAccess, Instant now) noexcept;
/// Sooner when a window shows a simulator that is not known yet.
bool simulatorsAreDue(const LastAsked& last, bool unknownSimulator, Instant now) noexcept;
bool emulatorsAreDue(const LastAsked& last, Instant now) noexcept;

}  // namespace ScanPacing

/// Finds out what is connected, asking no more than the pacing allows, and tells what changed.
///
/// **Threads**: one at a time. A scan waits for whatever it asks.
class DeviceScanner {
 public:
  enum class Pace { paced, forced };

  explicit DeviceScanner(DeviceDiscovery discovery);

  /// Looks again; `forced` asks everything. Returns whether there is something new for those who
  /// follow the devices: the devices, the access to the screen, or whether its content is known.
  /// What the content is may change without that.
  bool scan(Pace pace, ScanPacing::Instant now);

  const DeviceSnapshot& snapshot() const noexcept { return snapshot_; }

 private:
  void askScreen(Pace pace, ScanPacing::Instant now);
  void askSimulators(Pace pace, ScanPacing::Instant now);
  void askEmulators(Pace pace, ScanPacing::Instant now);

  const DeviceDiscovery discovery_;
  ScanPacing::LastAsked last_;
  std::vector<Simulator::Device> simulators_;
  std::vector<AndroidEmulator::Process> emulators_;
  std::optional<ScreenContent> content_;
  std::optional<bool> screenAccess_;
  DeviceSnapshot snapshot_;
};

}  // namespace lenslark
