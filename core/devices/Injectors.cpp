#include "devices/Injectors.h"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>

#include "base/FileDescriptor.h"
#include "devices/CommandError.h"

namespace lenslark::Injectors {
namespace {

namespace fs = std::filesystem;

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

/// Of the program as it was called, so that one that is linked to from elsewhere finds its own
/// neighbours. A name that was looked up on PATH says nothing of the directory.
fs::path executableDirectory() {
  const fs::path called = program_invocation_name;
  const fs::path executable = called.has_parent_path() ? called : fs::path("/proc/self/exe");
  std::error_code error;
  const fs::path resolved = fs::canonical(executable, error);
  return error ? fs::absolute(executable, error).parent_path() : resolved.parent_path();
}

/// The library in one place, under the name asked for and under its ELF twin's.
void addPlace(std::vector<fs::path>& places, const fs::path& directory, const std::string& name) {
  const fs::path library = directory / name;
  places.push_back(library);
  if (library.extension() == ".dylib") {
    places.push_back(fs::path(library).replace_extension(".so"));
  }
}

}  // namespace

std::vector<fs::path> candidates(const std::string& name, const fs::path& executableDirectory) {
  const fs::path parent = executableDirectory.parent_path();
  std::vector<fs::path> places;
  // Debian keeps libraries below the architecture's name when they come with the system.
  if (std::string_view(LENSLARK_LIBRARY_DIR) != "lib") {
    addPlace(places, parent / LENSLARK_LIBRARY_DIR / "lenslark", name);
  }
  addPlace(places, parent / "lib" / "lenslark", name);
  addPlace(places, executableDirectory, name);
  addPlace(places, parent / "Resources", name);
  addPlace(places, parent, name);
  constexpr int levels = 4;
  fs::path ancestor = executableDirectory;
  for (int level = 0; level < levels; ++level) {
    addPlace(places, ancestor / "build", name);
    ancestor = ancestor.parent_path();
  }
  addPlace(places, "/Applications/Lenslark.app/Contents/Resources", name);
  return places;
}

std::string path(const std::string& name, const char* environmentOverride) {
  const char* override = std::getenv(environmentOverride);
  if (override != nullptr && isThere(override)) return override;
  for (const fs::path& candidate : candidates(name, executableDirectory())) {
    if (isThere(candidate)) return candidate.string();
  }
  throw CommandError(name + " not found. Run scripts/build-injector.sh or install Lenslark.app.");
}

bool isElfLibrary(const std::string& path) {
  const FileDescriptor file = FileDescriptor::tryOpen(path, O_RDONLY | O_NONBLOCK);
  Elf64_Half type = ET_NONE;
  std::array<std::byte, EI_NIDENT + sizeof type> header{};
  if (!file || readAt(file, header, 0) != static_cast<ssize_t>(header.size())) return false;
  // The type follows the identification in files of both word sizes.
  std::memcpy(&type, header.data() + EI_NIDENT, sizeof type);
  return std::memcmp(header.data(), ELFMAG, SELFMAG) == 0 && type == ET_DYN;
}

}  // namespace lenslark::Injectors
