#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

/// The applications of the user's session. **Threads**: any.
namespace lenslark::RunningApplications {

struct Application {
  pid_t pid = 0;
  std::string version;  ///< As the application tells it; "?" where it does not.

  friend bool operator==(const Application&, const Application&) = default;
};

/// The application that owns this name; nothing when none does, and when that cannot be found out
/// within a second.
std::optional<Application> find(const std::string& bundleID);

}  // namespace lenslark::RunningApplications
