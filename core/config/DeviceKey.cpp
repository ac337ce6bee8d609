#include "config/DeviceKey.h"

namespace lenslark {

std::string_view rawValue(Platform platform) noexcept {
  return platform == Platform::ios ? "ios" : "android";
}

std::string_view rawValue(CameraPosition camera) noexcept {
  return camera == CameraPosition::back ? "back" : "front";
}

std::optional<CameraPosition> parseCameraPosition(std::string_view text) noexcept {
  for (const CameraPosition camera : {CameraPosition::back, CameraPosition::front}) {
    if (text == rawValue(camera)) return camera;
  }
  return std::nullopt;
}

std::optional<DeviceKey> DeviceKey::parse(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon + 1 == text.size()) return std::nullopt;
  const std::string_view word = text.substr(0, colon);
  for (const Platform platform : {Platform::ios, Platform::android}) {
    if (word == rawValue(platform)) return DeviceKey{platform, std::string(text.substr(colon + 1))};
  }
  return std::nullopt;
}

std::string DeviceKey::description() const {
  std::string text(rawValue(platform));
  text += ':';
  text += id;
  return text;
}

std::vector<CameraPosition> DeviceKey::cameras() const {
  if (platform == Platform::android) return {CameraPosition::back};
  return {CameraPosition::back, CameraPosition::front};
}

}  // namespace lenslark
