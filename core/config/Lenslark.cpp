#include "config/Lenslark.h"

#include <fmt/core.h>

#include <cstdlib>

#include "platform/UserDirectories.h"

namespace lenslark::Lenslark {
namespace {

static_assert(version == LENSLARK_PROJECT_VERSION, "CMakeLists.txt has another version");

std::string feedPath(std::string_view owner, std::optional<CameraPosition> camera) {
  if (!camera) return fmt::format("/tmp/lenslark-{}.shm", owner);
  return fmt::format("/tmp/lenslark-{}-{}.shm", owner, rawValue(*camera));
}

}  // namespace

std::filesystem::path supportDirectory() {
  const char* chosen = std::getenv("LENSLARK_CONFIG_DIR");
  if (chosen != nullptr && chosen[0] != '\0') return chosen;
  return UserDirectories::applicationSupport() / "Lenslark";
}

std::string sharedFramePath() {
  const char* chosen = std::getenv("LENSLARK_SHM");
  return chosen != nullptr ? chosen : "/tmp/lenslark.shm";
}

std::string simulatorFeedPath(const std::string& udid, std::optional<CameraPosition> camera) {
  return feedPath("sim-" + udid, camera);
}

std::string emulatorFeedPath(pid_t pid, std::optional<CameraPosition> camera) {
  return feedPath(fmt::format("pid-{}", pid), camera);
}

}  // namespace lenslark::Lenslark
