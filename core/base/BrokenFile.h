#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace lenslark::BrokenFile {

/// Keeps the content of a file that cannot be understood, so that replacing the file destroys
/// nothing: beside it, named "<name>.broken-<Unix seconds>", for its owner's eyes only. Content
/// that was kept before is not kept again. A name that is taken is left alone, whatever it is: the
/// next free second is used.
///
/// **Fails** with std::system_error; half a copy is not left.
void keepAside(const std::string& path, std::string_view content);

/// The paths of the copies of a file that were kept, in order; of those that can be found.
std::vector<std::string> copies(const std::string& path);

/// Whether such a copy of a file was kept, or this cannot be found out.
bool hasCopy(const std::string& path);

}  // namespace lenslark::BrokenFile
