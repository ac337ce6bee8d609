#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Drives the iOS Simulator through `xcrun simctl`. A `udid` may also be "booted", simctl's own
/// word for the booted device.
///
/// **Threads**: any; every operation waits for simctl.
/// **Fails** with std::system_error where there is no xcrun, with CommandError in simctl's own
/// words where that fails.
namespace lenslark::Simulator {

struct Device {
  std::string udid;
  std::string name;
  std::string runtime;  ///< "iOS-17-2".

  friend bool operator==(const Device&, const Device&) = default;
};

/// The simulators that are running; none where simctl fails. **Fails** with JsonError when what
/// simctl prints is not JSON.
std::vector<Device> bootedDevices();

/// What `simctl list devices booted -j` printed, read. Devices without a UDID or a name are left
/// out. **Fails** with JsonError.
std::vector<Device> parseDeviceList(std::string_view json);

/// The library that is put into simulator apps. **Fails** with CommandError when it is not found.
std::string injectorPath();

/// Starts an app with the injector in it, anew if it is running, and returns what simctl said.
std::string launch(const std::string& bundleID, const std::string& udid,
                   const std::vector<std::string>& extraArguments = {});

/// Puts the injector into every app that the simulator starts from now on.
void enableGlobally(const std::string& udid);
/// Takes that back. Needs no injector to be installed.
void disableGlobally(const std::string& udid);
/// Whether that is so. False where it cannot be found out.
bool isEnabled(const std::string& udid);

}  // namespace lenslark::Simulator
