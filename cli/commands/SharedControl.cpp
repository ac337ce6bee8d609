#include "commands/SharedControl.h"

#include <algorithm>

namespace lenslark {

CameraControl sharedControl() {
  return CameraControl(ConfigStore::shared(), MediaLibrary::shared());
}

std::string DeviceNames::name(const DeviceKey& key) {
  if (!connected_) connected_ = control_.connectedDevices();
  const auto connected = std::ranges::find(*connected_, key, &ConnectedDevice::key);
  if (connected != connected_->end()) return connected->name;
  const ConfigFile config = control_.store().config();
  const auto known = std::ranges::find(config.knownDevices, key, &KnownDevice::key);
  return known != config.knownDevices.end() ? known->name : key.description();
}

}  // namespace lenslark
