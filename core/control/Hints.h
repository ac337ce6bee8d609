#pragma once

#include <vector>

#include "control/Doctor.h"
#include "devices/ConnectedDevice.h"

/// What may puzzle a user of this system, beyond what can be called a fault. **Threads**: any.
namespace lenslark::Doctor::Hints {

/// No display; emulators whose /tmp is another one, or that were started without a name; tools and
/// modules that are missing.
std::vector<Check> checks(const std::vector<ConnectedDevice>& devices);

}  // namespace lenslark::Doctor::Hints
