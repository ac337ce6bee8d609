#include "commands/CameraFlag.h"

#include "commands/Failure.h"

namespace lenslark {

std::optional<CameraPosition> cameraFlag(const Arguments& arguments) {
  const auto text = arguments.value("--camera");
  if (!text) return std::nullopt;
  const auto camera = parseCameraPosition(*text);
  if (!camera) throw UsageError("--camera is back or front");
  return camera;
}

}  // namespace lenslark
