#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/SerialQueue.h"
#include "graphics/PixelBuffer.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Fans the frames of one running source out to any number of sinks, and remembers the latest. What
/// is worth it is drawn into memory once for all of them: then they get a SharedPicture. Lives in a
/// shared_ptr.
///
/// **Threads**: locked. No lock is held while a sink or the source is called.
/// **Owns** the source; holds its sinks weakly.
class SourceHub : public std::enable_shared_from_this<SourceHub> {
 public:
  SourceHub(std::string key, std::unique_ptr<FrameSource> source);
  ~SourceHub();
  SourceHub(const SourceHub&) = delete;
  SourceHub& operator=(const SourceHub&) = delete;

  /// Starts the source on a queue of its own. What it throws becomes `error` and is logged, unless
  /// it is the same as `knownError`: what an earlier attempt failed with.
  void start(std::optional<std::string> knownError = {});
  /// Stops the source on that queue, after a start that is still under way, and returns at once.
  /// The result is ready when the source has stopped. No sink gets a frame that comes later.
  std::future<void> stop();

  /// A sink that joins a running source gets the latest frame at once, on the caller's thread. Each
  /// sink gets one frame at a time, in order; the source waits while one gets its first.
  void add(const std::shared_ptr<FrameSink>& sink);
  /// When this returns, no further frame of this hub reaches the sink. Waits for a delivery that is
  /// under way, so it must not be called from the sink's own `deliver`.
  void remove(const FrameSink& sink);
  bool hasSinks() const;

  const std::string& key() const noexcept { return key_; }
  FrameSource& source() noexcept { return *source_; }
  FramePtr latest() const;       ///< Null before the first frame.
  std::uint64_t frames() const;  ///< Emitted so far.
  bool failedToStart() const;
  /// Why the source failed to start, or what is wrong with it since.
  std::optional<std::string> error() const;

 private:
  class Seat;
  using Seats = std::vector<std::shared_ptr<Seat>>;

  void runStart(const std::optional<std::string>& knownError);
  void emit(FramePtr frame) noexcept;
  /// Whether the sinks write so much of one picture that it is gone from the caches before anybody
  /// reads it. For up to three 1080p pictures, drawing each costs as much or less; from four on,
  /// drawing once costs less.
  static bool worthSharing(Size size, std::size_t sinks) noexcept;
  /// What the sinks get of a frame.
  FramePtr readyLocked(FramePtr frame) noexcept;

  const std::string key_;
  std::unique_ptr<FrameSource> source_;
  const ContentKind kind_;
  SerialQueue queue_;

  // Guarded by mutex_.
  mutable std::mutex mutex_;
  std::shared_ptr<const Seats> seats_;  // replaced, never changed: a frame takes the list along
  FramePtr last_;
  std::uint64_t frames_ = 0;
  std::optional<std::string> error_;
  bool started_ = false;
  bool stopped_ = false;
  std::shared_ptr<PixelBufferPool> pool_;  // for as long as pictures are shared
};

}  // namespace lenslark
