#include "codecs/ModuleFinder.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/Error.h"
#include "base/Text.h"
#include "codecs/ModuleEntry.h"

namespace lenslark::ModuleFinder {
namespace {

namespace fs = std::filesystem;

struct CloseLibrary {
  void operator()(void* library) const noexcept { ::dlclose(library); }
};

std::string lastLoaderError() {
  const char* message = ::dlerror();
  return message != nullptr ? message : "unknown error";
}

/// The entry's address, or nothing with the reason in `problem`.
void* tryLoad(const fs::path& file, const char* entrySymbol, std::string& problem) {
  std::unique_ptr<void, CloseLibrary> library(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!library) {
    problem = lastLoaderError();
    return nullptr;
  }
  const auto* stamp = static_cast<const char*>(::dlsym(library.get(), moduleStampSymbol));
  if (stamp == nullptr || std::strcmp(stamp, LENSLARK_MODULE_STAMP) != 0) {
    problem = fmt::format("{}: belongs to another build of lenslark", file.string());
    return nullptr;
  }
  void* entry = ::dlsym(library.get(), entrySymbol);
  if (entry == nullptr) {
    problem = lastLoaderError();
    return nullptr;
  }
  // Codec libraries leave threads and exit handlers behind: once used, the module stays.
  static_cast<void>(library.release());
  return entry;
}

void append(std::vector<fs::path>& directories, const fs::path& directory) {
  if (std::find(directories.begin(), directories.end(), directory) == directories.end()) {
    directories.push_back(directory);
  }
}

}  // namespace

std::vector<fs::path> searchPath(const std::string& moduleDirVariable, const fs::path& executable) {
  std::vector<fs::path> directories;
  if (!moduleDirVariable.empty()) append(directories, moduleDirVariable);
  if (!executable.empty()) {
    const fs::path beside = executable.parent_path();
    append(directories, beside);
    for (const char* library : {LENSLARK_LIBRARY_DIR, "lib", "lib64"}) {
      if (fs::path(library).is_relative()) {
        append(directories, beside.parent_path() / library / "lenslark");
      }
    }
  }
  append(directories, LENSLARK_MODULE_INSTALL_DIR);
  return directories;
}

void* load(const std::string& library, const char* entrySymbol,
           const std::vector<fs::path>& directories) {
  std::vector<std::string> problems;
  std::vector<std::string> places;
  for (const fs::path& directory : directories) {
    const fs::path file = directory / library;
    places.push_back(directory.string());
    std::error_code ignored;
    // A name without a slash would send the loader through the system's libraries.
    if (!file.has_parent_path() || !fs::exists(file, ignored)) continue;
    std::string problem;
    if (void* entry = tryLoad(file, entrySymbol, problem)) return entry;
    problems.push_back(problem);
  }
  const std::string reason =
      problems.empty() ? "there is no such file" : Text::join(problems, "; ");
  throw Error(fmt::format("{} could not be loaded: {}. Looked in: {}", library, reason,
                          Text::join(places, ", ")),
              "module_missing");
}

}  // namespace lenslark::ModuleFinder
