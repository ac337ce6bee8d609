#pragma once

#include <memory>

#include "devices/DeviceRegistry.h"

namespace lenslark {

/// Where the router hears of devices.
/// **Threads**: `start` and `stop` one after the other, on a queue that may block.
class DeviceFeed {
 public:
  using Handler = DeviceRegistry::ChangeHandler;

  virtual ~DeviceFeed() = default;

  /// Tells the present devices before it returns, then every change, on any thread.
  virtual void start(Handler onChange) = 0;
  virtual void stop() = 0;
};

/// The simulators and emulators of this machine. `screen` may be null where there is none; it must
/// outlive what is made.
std::unique_ptr<DeviceFeed> connectedDevices(Screen* screen);

}  // namespace lenslark
