#include "control/DeviceSelector.h"

#include <algorithm>

#include "base/Text.h"
#include "control/ControlError.h"

namespace lenslark::DeviceSelector {

std::vector<DeviceKey> select(std::string_view selector,
                              const std::vector<ConnectedDevice>& connected,
                              const std::vector<KnownDevice>& known) {
  const std::string wanted = Text::lowercase(selector);
  const bool all = wanted == "all";
  std::vector<DeviceKey> keys;
  if (all || wanted == "booted") {
    for (const ConnectedDevice& device : connected) {
      if (all || device.isIOS()) keys.push_back(device.key);
    }
    if (keys.empty() && !all) throw ControlError::deviceNotFound(selector);
    return keys;
  }

  if (auto key = DeviceKey::parse(selector)) return {*std::move(key)};

  const auto consider = [&](const DeviceKey& key, const std::string& name) {
    const bool matches = key.id == selector || Text::lowercase(name) == wanted;
    if (matches && std::ranges::find(keys, key) == keys.end()) keys.push_back(key);
  };
  for (const ConnectedDevice& device : connected) consider(device.key, device.name);
  for (const KnownDevice& device : known) consider(device.key, device.name);
  if (keys.empty()) throw ControlError::deviceNotFound(selector);
  return keys;
}

}  // namespace lenslark::DeviceSelector
