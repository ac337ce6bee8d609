#pragma once

#include <cstddef>
#include <initializer_list>
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

/// A part of a file, in bytes.
struct Extent {
  std::size_t offset = 0;
  std::size_t length = 0;
};

/// Makes the file exactly `size` bytes long, allocates those parts of it that are `reserved`, and
/// maps it. **Fails** with std::system_error that names the path, also when the file has one of the
/// last descriptors; a file that was empty is removed then.
MappedFile mapWhole(const FileDescriptor& file, const std::string& path, std::size_t size,
                    std::initializer_list<Extent> reserved);

/// Allocates a part of a file where the file system can do so: a hole that cannot be filled when it
/// is written to, on a full disk, would be a signal in the middle of a frame. Returns 0 or what
/// went wrong (errno).
int reserve(const FileDescriptor& file, const Extent& part) noexcept;

}  // namespace lenslark::FrameFileOpening
