#include "commands/SharedControl.h"

namespace lenslark {

CameraControl sharedControl() {
  return CameraControl(ConfigStore::shared(), MediaLibrary::shared());
}

std::string DeviceNames::name(const DeviceKey& key) {
  if (!names_) names_ = list();
  const std::string text = key.description();
  const auto named = names_->find(text);
  return named != names_->end() ? named->second : text;
}

DeviceNames::Names DeviceNames::list() const {
  Names names;
  // The first name that is given to a device stays.
  for (const ConnectedDevice& device : control_.connectedDevices()) {
    names.emplace(device.key.description(), device.name);
  }
  const ConfigFile config = control_.store().config();
  for (const KnownDevice& device : config.knownDevices) {
    names.emplace(device.key.description(), device.name);
  }
  return names;
}

}  // namespace lenslark
