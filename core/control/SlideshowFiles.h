#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

/// Which files a slideshow shows. **Threads**: any.
namespace lenslark::SlideshowFiles {

/// Every path in turn: a folder stands for the pictures and films directly inside it that are not
/// hidden, in the natural order of their names; anything else stands for itself.
/// **Fails** with std::system_error that names a folder which cannot be listed.
std::vector<std::filesystem::path> expand(const std::vector<std::filesystem::path>& paths);

/// Whether `a` comes before `b` to a person's eye: numbers inside names count as numbers ("2.png"
/// before "10.png"), letter case only where nothing else differs.
bool naturallyBefore(std::string_view a, std::string_view b);

}  // namespace lenslark::SlideshowFiles
