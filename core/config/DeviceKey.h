#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lenslark {

enum class Platform { ios, android };
enum class CameraPosition { back, front };

/// "ios" or "android".
std::string_view rawValue(Platform platform) noexcept;
/// "back" or "front".
std::string_view rawValue(CameraPosition camera) noexcept;
std::optional<CameraPosition> parseCameraPosition(std::string_view text) noexcept;

/// Identity of one simulator (its UDID) or emulator (its AVD's name).
struct DeviceKey {
  Platform platform = Platform::ios;
  std::string id;

  static DeviceKey ios(std::string udid) { return {Platform::ios, std::move(udid)}; }
  static DeviceKey android(std::string avd) { return {Platform::android, std::move(avd)}; }

  /// Reads the text form "ios:UDID" or "android:AVD"; the id may hold colons itself.
  static std::optional<DeviceKey> parse(std::string_view text);

  std::string description() const;

  /// The cameras a device of this platform has: an emulator takes a single webcam.
  std::vector<CameraPosition> cameras() const;

  friend bool operator==(const DeviceKey&, const DeviceKey&) = default;
  /// By text form: every Android device before every iOS device, then by id.
  friend bool operator<(const DeviceKey& a, const DeviceKey& b) {
    return a.description() < b.description();
  }
  friend bool operator>(const DeviceKey& a, const DeviceKey& b) { return b < a; }
  friend bool operator<=(const DeviceKey& a, const DeviceKey& b) { return !(b < a); }
  friend bool operator>=(const DeviceKey& a, const DeviceKey& b) { return !(a < b); }
};

}  // namespace lenslark
