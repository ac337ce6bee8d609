#include "platform/UserDirectories.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace lenslark::UserDirectories {
namespace {

std::filesystem::path environmentPath(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::filesystem::path() : std::filesystem::path(value);
}

/// The root directory where even the user database has nothing: services may run so.
std::filesystem::path homeInUserDatabase() {
  constexpr std::size_t enoughForAnyEntry = 64 * 1024;
  std::vector<char> strings(enoughForAnyEntry);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, strings.data(), strings.size(), &found);
  if (found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] == '\0') return "/";
  return found->pw_dir;
}

}  // namespace

std::filesystem::path home() {
  const std::filesystem::path fromEnvironment = environmentPath("HOME");
  return fromEnvironment.empty() ? homeInUserDatabase() : fromEnvironment;
}

std::filesystem::path applicationSupport() {
  const std::filesystem::path dataHome = environmentPath("XDG_DATA_HOME");
  return dataHome.is_absolute() ? dataHome : home() / ".local" / "share";
}

}  // namespace lenslark::UserDirectories
