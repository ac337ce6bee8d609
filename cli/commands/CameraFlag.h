#pragma once

#include <optional>

#include "commands/Arguments.h"
#include "config/DeviceKey.h"

namespace lenslark {

/// The value of "--camera". **Fails** with UsageError when it is neither "back" nor "front".
std::optional<CameraPosition> cameraFlag(const Arguments& arguments);

}  // namespace lenslark
