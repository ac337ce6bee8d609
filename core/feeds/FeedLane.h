#pragma once

#include <memory>
#include <string>

#include "base/SerialQueue.h"
#include "feeds/FeedOutput.h"
#include "feeds/OverlayCache.h"
#include "sources/SourceHub.h"

namespace lenslark {

/// What is done to one feed file, one thing after the other and away from the router's queue:
/// opening it, drawing what changed into it, removing it. Each may wait for a disk or for a frame.
///
/// **Threads**: queue-bound, to a queue of its own that may block; `queue` and `path` any.
/// **Owns** the output.
class FeedLane {
 public:
  /// How a feed's pictures are shown.
  struct Look {
    FeedOutput::Style style;
    LLSceneMode sceneMode = LLSceneModeFit;
    OverlayCache::Picture overlay;

    friend bool operator==(const Look&, const Look&) = default;
  };
  struct Opening {
    LLCamera camera = LLCameraDevice;
    int maxSide = 0;
    std::size_t room = SharedFrameWriter::usualRoom;  ///< For a frame, in bytes.
    Look look;
    /// What the camera showed before, if it did: in the file before anybody is told of it.
    FramePtr before;
    ContentKind beforeKind = ContentKind::live;
  };

  explicit FeedLane(std::string path);

  SerialQueue& queue() noexcept { return queue_; }
  const std::string& path() const noexcept { return path_; }

  /// Opens the file, or opens it anew: alive and with its look, but without a source. What is
  /// returned may be asked for its place and marked as alive by others. **Fails** with
  /// std::exception; there is no output then, and no file of ours either.
  std::shared_ptr<FeedOutput> open(const Opening& opening);

  void restyle(const Look& look);

  /// Shows another source: its latest frame at once, and none of the one before it any more.
  void follow(std::shared_ptr<SourceHub> hub);

  /// Leaves the file behind, without a writer.
  void close();
  /// Closes the file and removes it, if it is still there and nobody else's.
  void remove();
  /// Removes a frame file that nobody writes any more. What is being written, and what is no frame
  /// file, stays.
  void removeLeftover();

 private:
  void unfollow();
  /// Whether the file at the path is not what somebody else put there or took over since.
  bool isOurs() const;

  const std::string path_;
  SerialQueue queue_;

  // The queue's.
  std::shared_ptr<FeedOutput> output_;
  std::shared_ptr<SourceHub> hub_;
};

}  // namespace lenslark
