#include "devices/ConnectedDevice.h"

#include "config/Lenslark.h"

namespace lenslark {

std::string_view DeviceWindow::platform() const noexcept {
  return std::holds_alternative<IosSimulator>(kind) ? "iOS" : "Android";
}

std::string_view ConnectedDevice::platform() const noexcept { return isIOS() ? "iOS" : "Android"; }

std::string ConnectedDevice::feedPath(std::optional<CameraPosition> camera) const {
  if (const auto* emulator = std::get_if<Emulator>(&feed)) {
    return Lenslark::emulatorFeedPath(emulator->pid, camera);
  }
  return Lenslark::simulatorFeedPath(std::get<Simulator>(feed).udid, camera);
}

}  // namespace lenslark
