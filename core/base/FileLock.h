#pragma once

#include <string>

#include "base/FileDescriptor.h"

namespace lenslark {

/// Holds an exclusive advisory lock (flock) on a file of its own, made with mode 0600 when it is
/// missing, from construction to destruction. Serialises processes; threads too, since each lock
/// opens the file anew.
class FileLock {
 public:
  /// Waits until the lock is free, and after some seconds logs for what: whoever holds it may have
  /// been stopped, and nobody would know why nothing happens. **Fails** with std::system_error that
  /// names the path.
  explicit FileLock(const std::string& path);

 private:
  FileDescriptor file_;
};

}  // namespace lenslark
