#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devices/AndroidEmulator.h"
#include "devices/ConnectedDevice.h"
#include "devices/Simulator.h"
#include "platform/Screen.h"

/// How simulators, emulators and windows become the list of connected devices. Pure functions.
namespace lenslark::DeviceMerge {

/// The applications that show devices on the screen: the Simulator by its bundle, an emulator's
/// engine by what its name starts with.
inline constexpr std::string_view simulatorBundle = "com.apple.iphonesimulator";
inline constexpr std::string_view emulatorEngine = AndroidEmulator::engine;

/// The normal, visible windows of the Simulator and of emulators, in the order of the listing.
std::vector<WindowInfo> deviceWindows(const std::optional<ScreenContent>& content);

/// The titles of the Simulator's device windows.
std::vector<std::string> simulatorWindowTitles(const std::optional<ScreenContent>& content);

/// Whether a Simulator window shows a device that is not among `simulators`: one just booted.
bool hasUnknownSimulator(const std::optional<ScreenContent>& content,
                         const std::vector<Simulator::Device>& simulators);

/// The devices without their windows: the simulators, then the emulators, in the order given.
std::vector<ConnectedDevice> withoutWindows(const std::vector<Simulator::Device>& simulators,
                                            const std::vector<AndroidEmulator::Process>& emulators);

/// The devices with their windows, by name and, for equal names, by key.
std::vector<ConnectedDevice> merge(const std::vector<Simulator::Device>& simulators,
                                   const std::vector<AndroidEmulator::Process>& emulators,
                                   const std::optional<ScreenContent>& content);

}  // namespace lenslark::DeviceMerge
