#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "base/SerialQueue.h"

namespace lenslark {

/// Tells when something in a directory was created, written, renamed or deleted, however an
/// editor does it. Goes on watching when the directory itself is deleted, moved or replaced, and
/// tells of that too; it need not exist yet.
///
/// **Threads**: one of its own, asleep until the system reports something.
/// **Owns**: neither the queue nor the directory; the queue must outlive it.
class DirectoryWatcher {
 public:
  /// `onChange` runs on `queue`, once for a burst of events.
  /// **Fails** with std::system_error when the system has no watches left or the directory may not
  /// be watched.
  DirectoryWatcher(const std::filesystem::path& directory, SerialQueue& queue,
                   std::function<void()> onChange);
  /// No call of `onChange` begins afterwards; one that another thread is in may still be running.
  ~DirectoryWatcher();
  DirectoryWatcher(const DirectoryWatcher&) = delete;
  DirectoryWatcher& operator=(const DirectoryWatcher&) = delete;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
