#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "config/DeviceKey.h"

namespace lenslark {

/// The on-screen window that shows a device.
struct DeviceWindow {
  struct IosSimulator {
    std::string udid;
    friend bool operator==(const IosSimulator&, const IosSimulator&) = default;
  };
  struct AndroidEmulator {
    pid_t pid = 0;
    friend bool operator==(const AndroidEmulator&, const AndroidEmulator&) = default;
  };

  std::variant<IosSimulator, AndroidEmulator> kind;
  std::string name;  ///< Of the device, not the window's title.
  std::uint32_t windowID = 0;

  /// "iOS" or "Android".
  std::string_view platform() const noexcept;

  friend bool operator==(const DeviceWindow&, const DeviceWindow&) = default;
};

/// A booted simulator or a running emulator.
struct ConnectedDevice {
  struct Simulator {
    std::string udid;
    friend bool operator==(const Simulator&, const Simulator&) = default;
  };
  struct Emulator {
    pid_t pid = 0;
    friend bool operator==(const Emulator&, const Emulator&) = default;
  };

  DeviceKey key;
  std::string name;
  std::variant<Simulator, Emulator> feed;  ///< Whose frame files are read.
  std::optional<std::string> runtime;
  std::optional<DeviceWindow> window;

  bool isIOS() const noexcept { return key.platform == lenslark::Platform::ios; }
  /// "iOS" or "Android".
  std::string_view platform() const noexcept;
  /// The device's frame file, or that of one of its cameras.
  std::string feedPath(std::optional<CameraPosition> camera) const;

  friend bool operator==(const ConnectedDevice&, const ConnectedDevice&) = default;
};

}  // namespace lenslark
