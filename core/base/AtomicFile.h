#pragma once

#include <filesystem>
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

/// Makes the renames that happened in a directory last beyond a power cut, where that can be had:
/// some directories cannot be opened or flushed, and the renames have happened all the same.
void flushDirectory(const std::filesystem::path& directory) noexcept;

/// Removes the temporary files that processes which died in `replace` left in a directory: those of
/// the file `name`, or of every file when it is empty. The caller holds the lock under which these
/// files are replaced, so that nobody is writing one. What cannot be removed stays. **Fails** with
/// std::bad_alloc alone.
void removeAbandoned(const std::filesystem::path& directory, std::string_view name);

}  // namespace lenslark::AtomicFile
