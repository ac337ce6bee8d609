#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "base/SerialQueue.h"

namespace lenslark {

/// Tells when something in a directory was created, written, renamed or deleted, however an
/// editor does it. Goes on watching when the directory itself is replaced.
class DirectoryWatcher {
 public:
  /// `onChange` runs on `queue`, once for a burst of events. The directory must exist.
  /// **Fails** with std::system_error.
  DirectoryWatcher(const std::filesystem::path& directory, SerialQueue& queue,
                   std::function<void()> onChange);
  ~DirectoryWatcher();
  DirectoryWatcher(const DirectoryWatcher&) = delete;
  DirectoryWatcher& operator=(const DirectoryWatcher&) = delete;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
