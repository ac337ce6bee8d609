#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "config/OverlaySpec.h"
#include "feeds/FrameLayout.h"
#include "feeds/SharedFrameWriter.h"
#include "graphics/PixelBuffer.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// The end of one camera's feed: shapes frames for the camera and writes them. A picture is drawn
/// once, from its source straight into the file.
///
/// **Threads**: locked. **Owns** its writer.
class FeedOutput final : public FrameSink {
 public:
  struct Style {
    bool android = false;  ///< The feed goes to an Android emulator.
    bool desktop = false;  ///< The source is the desktop under the device's window.
    bool fill = true;      ///< Covers the frame rather than fitting inside it.
    std::optional<OverlaySpec> overlay;

    friend bool operator==(const Style&, const Style&) = default;
  };

  /// No written frame's side is longer than `maxSide`; there is `room` for a frame at once.
  /// **Fails** with std::system_error.
  FeedOutput(const std::string& path, LLCamera camera, int maxSide,
             std::size_t room = SharedFrameWriter::usualRoom);

  void deliver(const FramePtr& frame, ContentKind kind) noexcept override;

  /// Shows the last frame again if that changes how it looks.
  void update(const Style& style, std::shared_ptr<const PixelBuffer> overlayImage);

  void setSceneMode(LLSceneMode mode);
  void heartbeat() noexcept;
  /// Whether the path still names the file that is being written.
  bool stillInPlace() const noexcept;
  /// Whether another process has taken the file over, and whether it has left it again.
  bool isTakenOver() const noexcept;
  bool isVacant() const noexcept;
  /// What room a frame did not find on the disk, in bytes; 0 while all did.
  std::size_t missingRoom() const noexcept;
  const std::string& path() const noexcept;

  /// Leaves the file behind without a writer; nothing is written to it any more. Waits for a frame
  /// that is being drawn.
  void close() noexcept;

 private:
  /// The overlay as it lies in frames of one size: scaled, faded.
  struct ReadyOverlay {
    Size frame;
    std::shared_ptr<const PixelBuffer> picture;  ///< None when nothing of it is seen.
    int x = 0;
    int y = 0;
  };

  void writeLocked(const Frame& frame, ContentKind kind) noexcept;
  bool composeLocked(const Frame& frame, ContentKind kind) noexcept;
  bool onCanvasLocked() const noexcept { return style_.android && !style_.desktop; }
  bool hasOverlayLocked() const noexcept { return style_.overlay && overlayImage_; }
  void readyOverlayLocked(Size frame) noexcept;
  ReadyOverlay makeOverlayLocked(Size frame) const;

  const int maxSide_;

  mutable std::mutex lock_;
  // Guarded by lock_ (but for the writer's heartbeat, path and place, which anybody may ask for).
  SharedFrameWriter writer_;
  Style style_;
  std::shared_ptr<const PixelBuffer> overlayImage_;
  ReadyOverlay overlay_;
  FramePtr last_;
  ContentKind lastKind_ = ContentKind::live;
};

}  // namespace lenslark
