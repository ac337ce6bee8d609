#pragma once

#include <optional>
#include <string>
#include <unordered_map>

#include "control/CameraControl.h"

namespace lenslark {

/// Camera control over the user's own configuration and media library.
CameraControl sharedControl();

/// Human names of devices for messages. Lists the devices once, when the first name is asked for:
/// the names are those of that moment. **Threads**: one at a time.
class DeviceNames {
 public:
  explicit DeviceNames(const CameraControl& control) : control_(control) {}

  /// As the device is called now, else as it was called when it was last seen, else its key.
  std::string name(const DeviceKey& key);

 private:
  using Names = std::unordered_map<std::string, std::string>;  // by the key's text form

  Names list() const;

  const CameraControl& control_;
  std::optional<Names> names_;
};

}  // namespace lenslark
