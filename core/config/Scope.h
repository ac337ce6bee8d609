#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "config/DeviceKey.h"

namespace lenslark {

/// Where a setting applies.
class Scope {
 public:
  struct Global {
    friend bool operator==(const Global&, const Global&) = default;
  };
  struct Device {
    DeviceKey key;
    friend bool operator==(const Device&, const Device&) = default;
  };
  struct Camera {
    DeviceKey key;
    CameraPosition camera = CameraPosition::back;
    friend bool operator==(const Camera&, const Camera&) = default;
  };
  using Value = std::variant<Global, Device, Camera>;

  Scope() = default;  ///< Global.
  static Scope global() { return {}; }
  static Scope device(DeviceKey key) { return Scope(Device{std::move(key)}); }
  static Scope camera(DeviceKey key, CameraPosition camera) {
    return Scope(Camera{std::move(key), camera});
  }

  const Value& value() const noexcept { return value_; }

  /// "global", "ios:UDID" or "ios:UDID front".
  std::string description() const;
  /// "global", "device" or "camera".
  std::string_view kindName() const noexcept;
  /// The device of a device or camera scope.
  std::optional<DeviceKey> device() const;
  /// The camera of a camera scope.
  std::optional<CameraPosition> camera() const noexcept;

  friend bool operator==(const Scope&, const Scope&) = default;

 private:
  explicit Scope(Value value) : value_(std::move(value)) {}

  Value value_;
};

}  // namespace lenslark
