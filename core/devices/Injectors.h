#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Finds the libraries that are put into simulator apps and emulators.
namespace lenslark::Injectors {

/// The first of `candidates` that exists, after the path in the environment variable
/// `environmentOverride`. **Fails** with CommandError that names the library.
std::string path(const std::string& name, const char* environmentOverride);

/// Where the library `name` may lie, the likeliest first: with the installed program, in an
/// application bundle, in a build tree above it. Each place is also looked at for the library
/// under the name that ELF systems give it (".so").
std::vector<std::filesystem::path> candidates(const std::string& name,
                                              const std::filesystem::path& executableDirectory);

/// Whether the file is an ELF shared object, which takes LD_PRELOAD to be loaded.
bool isElfLibrary(const std::string& path);

}  // namespace lenslark::Injectors
