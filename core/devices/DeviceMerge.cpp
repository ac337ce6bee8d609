#include "devices/DeviceMerge.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace lenslark::DeviceMerge {
namespace {

constexpr std::string_view emulatorTitle = "Android Emulator";

bool isSimulatorWindow(const WindowInfo& window) {
  return window.bundleIdentifier == simulatorBundle;
}

bool isDeviceWindow(const WindowInfo& window) {
  constexpr double smallest = 100;
  const bool ofDevice =
      isSimulatorWindow(window) || window.applicationName.starts_with(emulatorEngine);
  return ofDevice && window.layer == 0 && window.onScreen && window.frame.width > smallest &&
         window.frame.height > smallest;
}

/// The simulator that a window titled so shows: the one of exactly that name, else the one with
/// the longest name that the title begins with. So the window of an "iPhone 15 Pro" never goes to
/// an "iPhone 15".
ConnectedDevice* simulatorTitled(std::vector<ConnectedDevice>& devices, const std::string& title) {
  ConnectedDevice* best = nullptr;
  for (ConnectedDevice& device : devices) {
    if (!device.isIOS() || device.window || !title.starts_with(device.name)) continue;
    // A longer one wins, and nothing is longer than the exact name.
    if (best == nullptr || device.name.size() > best->name.size()) best = &device;
  }
  return best;
}

ConnectedDevice* emulatorOfProcess(std::vector<ConnectedDevice>& devices, pid_t pid) {
  for (ConnectedDevice& device : devices) {
    const auto* emulator = std::get_if<ConnectedDevice::Emulator>(&device.feed);
    if (emulator != nullptr && emulator->pid == pid && !device.window) return &device;
  }
  return nullptr;
}

void assign(std::vector<ConnectedDevice>& devices, const WindowInfo& window) {
  if (isSimulatorWindow(window)) {
    ConnectedDevice* device = simulatorTitled(devices, window.title);
    if (device == nullptr) return;
    device->window =
        DeviceWindow{DeviceWindow::IosSimulator{device->key.id}, device->name, window.id};
  } else if (window.title.starts_with(emulatorTitle)) {
    ConnectedDevice* device = emulatorOfProcess(devices, window.pid);
    if (device == nullptr) return;
    device->window =
        DeviceWindow{DeviceWindow::AndroidEmulator{window.pid}, device->name, window.id};
  }
}

}  // namespace

std::vector<WindowInfo> deviceWindows(const std::optional<ScreenContent>& content) {
  std::vector<WindowInfo> windows;
  if (!content) return windows;
  std::copy_if(content->windows.begin(), content->windows.end(), std::back_inserter(windows),
               isDeviceWindow);
  return windows;
}

std::vector<std::string> simulatorWindowTitles(const std::optional<ScreenContent>& content) {
  std::vector<std::string> titles;
  for (const WindowInfo& window : deviceWindows(content)) {
    if (isSimulatorWindow(window) && !window.title.empty()) titles.push_back(window.title);
  }
  return titles;
}

bool hasUnknownSimulator(const std::optional<ScreenContent>& content,
                         const std::vector<Simulator::Device>& simulators) {
  const std::vector<std::string> titles = simulatorWindowTitles(content);
  return std::any_of(titles.begin(), titles.end(), [&](const std::string& title) {
    return std::none_of(
        simulators.begin(), simulators.end(),
        [&](const Simulator::Device& simulator) { return title.starts_with(simulator.name); });
  });
}

std::vector<ConnectedDevice> withoutWindows(
    const std::vector<Simulator::Device>& simulators,
    const std::vector<AndroidEmulator::Process>& emulators) {
  std::vector<ConnectedDevice> devices;
  devices.reserve(simulators.size() + emulators.size());
  for (const Simulator::Device& simulator : simulators) {
    devices.push_back({.key = DeviceKey::ios(simulator.udid),
                       .name = simulator.name,
                       .feed = ConnectedDevice::Simulator{simulator.udid},
                       .runtime = simulator.runtime});
  }
  for (const AndroidEmulator::Process& emulator : emulators) {
    devices.push_back({.key = DeviceKey::android(emulator.avd),
                       .name = emulator.avd,
                       .feed = ConnectedDevice::Emulator{emulator.pid}});
  }
  return devices;
}

std::vector<ConnectedDevice> merge(const std::vector<Simulator::Device>& simulators,
                                   const std::vector<AndroidEmulator::Process>& emulators,
                                   const std::optional<ScreenContent>& content) {
  std::vector<ConnectedDevice> devices = withoutWindows(simulators, emulators);
  for (const WindowInfo& window : deviceWindows(content)) assign(devices, window);
  std::stable_sort(devices.begin(), devices.end(),
                   [](const ConnectedDevice& a, const ConnectedDevice& b) {
                     return a.name != b.name ? a.name < b.name : a.key < b.key;
                   });
  return devices;
}

}  // namespace lenslark::DeviceMerge
