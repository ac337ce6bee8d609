#pragma once

#include <string>

#include "control/CameraControl.h"

namespace lenslark {

/// Camera control over the user's own configuration and media library.
CameraControl sharedControl();

/// Human names of devices for messages. Lists the connected devices once, when the first name is
/// asked for. **Threads**: one at a time.
class DeviceNames {
 public:
  explicit DeviceNames(const CameraControl& control) : control_(control) {}

  /// As the device is called now, else as it was called when it was last seen, else its key.
  std::string name(const DeviceKey& key);

 private:
  const CameraControl& control_;
  std::optional<std::vector<ConnectedDevice>> connected_;
};

}  // namespace lenslark
