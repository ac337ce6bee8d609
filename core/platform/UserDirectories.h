#pragma once

#include <filesystem>

namespace lenslark::UserDirectories {

/// $HOME, else the home directory of the user database.
std::filesystem::path home();

/// Where programs keep a user's data: $XDG_DATA_HOME when it is an absolute path, else
/// ~/.local/share.
std::filesystem::path applicationSupport();

}  // namespace lenslark::UserDirectories
