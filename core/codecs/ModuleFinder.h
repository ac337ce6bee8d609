#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Where modules may lie, and how one is opened.
namespace lenslark::ModuleFinder {

/// The directories in the order in which they are searched; see `codecs/Modules.h`.
/// `moduleDirVariable` is the value of $LENSLARK_MODULE_DIR, empty when it is not set.
std::vector<std::filesystem::path> searchPath(const std::string& moduleDirVariable,
                                              const std::filesystem::path& executable);

/// The address of `entrySymbol` in the first of `directories` that holds a usable library of this
/// name. A library that is there but cannot be used does not end the search; what was wrong with
/// it becomes part of the message. The library is never unloaded.
/// **Fails** with Error.
void* load(const std::string& library, const char* entrySymbol,
           const std::vector<std::filesystem::path>& directories);

}  // namespace lenslark::ModuleFinder
