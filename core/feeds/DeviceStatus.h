#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config/Assignment.h"
#include "devices/ConnectedDevice.h"

namespace lenslark {

/// What one camera is being fed.
struct CameraStatus {
  CameraPosition camera = CameraPosition::back;
  Assignment assignment;
  std::optional<std::string> feedPath;

  friend bool operator==(const CameraStatus&, const CameraStatus&) = default;
};

struct DeviceStatus {
  ConnectedDevice device;
  std::vector<CameraStatus> cameras;

  friend bool operator==(const DeviceStatus&, const DeviceStatus&) = default;
};

}  // namespace lenslark
