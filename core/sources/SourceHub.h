#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/SerialQueue.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Fans the frames of one running source out to any number of sinks, and remembers the latest.
///
/// **Threads**: locked. No lock is held while a sink or the source is called.
/// **Owns** the source; holds its sinks weakly.
class SourceHub : public std::enable_shared_from_this<SourceHub> {
 public:
  SourceHub(std::string key, std::unique_ptr<FrameSource> source);
  ~SourceHub();

  /// Starts the source on a queue of its own. What it throws becomes `error` and is logged.
  void start();
  /// Stops the source on that queue, after a start that is still under way, and returns at once.
  void stop();

  /// A sink that joins a running source gets the latest frame at once.
  void add(const std::shared_ptr<FrameSink>& sink);
  /// When this returns, no further frame of this hub reaches the sink.
  void remove(const FrameSink& sink);
  bool hasSinks() const;

  const std::string& key() const noexcept;
  FrameSource& source() noexcept;
  std::uint64_t frames() const;              ///< Emitted so far.
  std::optional<std::string> error() const;  ///< Why the source failed.
};

}  // namespace lenslark
