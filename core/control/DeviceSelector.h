#pragma once

#include <string_view>
#include <vector>

#include "config/ConfigFile.h"
#include "devices/ConnectedDevice.h"

/// How people name devices. **Threads**: any, pure.
namespace lenslark::DeviceSelector {

/// The devices that a selector names, each once:
/// - "all" (any letter case): every connected device, perhaps none;
/// - "booted" (any letter case): every connected simulator;
/// - a device key: that device, connected or not;
/// - anything else: those whose UDID or AVD name is exactly that, or whose name is that in any
///   letter case; the connected ones first, then the remembered ones.
///
/// **Fails** with ControlError::deviceNotFound where nothing answers, except for "all".
std::vector<DeviceKey> select(std::string_view selector,
                              const std::vector<ConnectedDevice>& connected,
                              const std::vector<KnownDevice>& known);

}  // namespace lenslark::DeviceSelector
