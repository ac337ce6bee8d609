#pragma once

#include <string>
#include <string_view>

namespace lenslark::AtomicFile {

/// Replaces the file at `path` by one with these bytes: written beside it under a temporary name,
/// flushed to the disk, renamed into place, the directory flushed too. Readers see the old or the
/// new file, never half of one, also after a power cut. The file gets the default mode of new
/// files.
///
/// **Fails** with std::system_error that names the path; the old file is then untouched and no
/// temporary file is left.
void replace(const std::string& path, std::string_view bytes);

}  // namespace lenslark::AtomicFile
