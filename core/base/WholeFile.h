#pragma once

#include <string>

#include "base/FileDescriptor.h"

namespace lenslark {

/// The regular file at `path`, to be read; never waits for the writer of a FIFO. An invalid
/// descriptor when there is none, or something else. **Fails** with std::system_error that names
/// the path when there may be one, but it cannot be opened.
FileDescriptor openRegularFile(const std::string& path);

/// Flushes a file's content to the disk, again after an interruption. **Fails** with
/// std::system_error that names `what`.
void flush(const FileDescriptor& file, const std::string& what);

/// What holds a descriptor for long, as a feed or a film does, must leave some for what comes and
/// goes: looks for devices, settings, commands to tools. **Fails** with std::system_error (EMFILE)
/// that names `what` when this one is of the last.
void leaveDescriptorsForOthers(const FileDescriptor& file, const std::string& what);

/// Whether a failure to open says that this process or the machine is short of something or broken,
/// rather than that the wrong thing stands at the path.
bool isShortage(int errorNumber) noexcept;

}  // namespace lenslark
