#pragma once

#include <filesystem>

namespace lenslark {

/// Makes the directory and those above it, where they are missing.
/// **Fails** with std::system_error "cannot create PATH: ...".
void createDirectories(const std::filesystem::path& directory);

}  // namespace lenslark
