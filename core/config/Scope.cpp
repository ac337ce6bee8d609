#include "config/Scope.h"

#include <array>

namespace lenslark {

std::string Scope::description() const {
  const auto key = device();
  if (!key) return "global";
  std::string text = key->description();
  if (const auto position = camera()) {
    text += ' ';
    text += rawValue(*position);
  }
  return text;
}

std::string_view Scope::kindName() const noexcept {
  static constexpr std::array<std::string_view, std::variant_size_v<Value>> names{
      "global", "device", "camera"};
  return names[value_.index()];
}

std::optional<DeviceKey> Scope::device() const {
  if (const auto* scope = std::get_if<Device>(&value_)) return scope->key;
  if (const auto* scope = std::get_if<Camera>(&value_)) return scope->key;
  return std::nullopt;
}

std::optional<CameraPosition> Scope::camera() const noexcept {
  if (const auto* scope = std::get_if<Camera>(&value_)) return scope->camera;
  return std::nullopt;
}

}  // namespace lenslark
