#pragma once

#include <cstddef>
#include <string>

#include "base/FileDescriptor.h"
#include "base/MappedFile.h"

/// How a frame file comes to lie at its path. Everybody may create files in /tmp, so whatever
/// stands there is looked at before it is trusted.
namespace lenslark::FrameFileOpening {

/// Opens the caller's own file at `path` or creates it, readable and writable for the caller alone.
/// A link, a file of somebody else or with a second name, or anything that is no regular file is
/// removed and replaced, never followed or written. Never blocks.
/// **Fails** with std::system_error that tells what stands in the way and whose it is.
FileDescriptor openPrivate(const std::string& path);

/// Makes the file exactly `size` bytes long, all of them allocated where the file system can, and
/// maps it. **Fails** with std::system_error that names the path; a file that was empty is removed
/// then.
MappedFile mapWhole(const FileDescriptor& file, const std::string& path, std::size_t size);

}  // namespace lenslark::FrameFileOpening
