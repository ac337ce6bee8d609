#pragma once

#include "devices/ConnectedDevice.h"

namespace lenslark {

inline ConnectedDevice simulator(const std::string& udid, std::string name) {
  return {.key = DeviceKey::ios(udid),
          .name = std::move(name),
          .feed = ConnectedDevice::Simulator{udid},
          .runtime = "iOS-17-2",
          .window = {}};
}

inline ConnectedDevice emulator(const std::string& avd, pid_t pid) {
  return {.key = DeviceKey::android(avd),
          .name = avd,
          .feed = ConnectedDevice::Emulator{pid},
          .runtime = {},
          .window = {}};
}

}  // namespace lenslark
