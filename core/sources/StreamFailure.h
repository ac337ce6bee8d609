#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "base/Log.h"
#include "platform/Screen.h"

namespace lenslark {

/// Remembers why a capture ended by itself. **Threads**: any.
class StreamFailure {
 public:
  void clear() {
    const std::lock_guard lock(mutex_);
    reason_.reset();
  }

  std::optional<std::string> reason() const {
    const std::lock_guard lock(mutex_);
    return reason_;
  }

  /// `what` was filmed until `error`.
  void note(const std::string& what, const Error& error) {
    Log::capture().error("capture of {} stopped: {}", what, error.what());
    const std::lock_guard lock(mutex_);
    reason_ = error.what();
  }

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> reason_;
};

}  // namespace lenslark
