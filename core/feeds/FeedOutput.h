#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "config/OverlaySpec.h"
#include "feeds/SharedFrameWriter.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// The end of one camera's feed: shapes frames for the camera and writes them.
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

  /// No written frame's side is longer than `maxSide`. **Fails** with std::system_error.
  FeedOutput(const std::string& path, LLCamera camera, int maxSide);

  void deliver(const FramePtr& frame, ContentKind kind) noexcept override;

  /// Shows the last frame again if that changes how it looks.
  void update(const Style& style, std::shared_ptr<const PixelBuffer> overlayImage);

  void setSceneMode(LLSceneMode mode);
  void heartbeat() noexcept;
  const std::string& path() const noexcept;
};

}  // namespace lenslark
