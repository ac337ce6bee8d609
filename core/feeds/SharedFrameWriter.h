#pragma once

#include <cstdint>
#include <string>

#include "base/FileDescriptor.h"
#include "base/MappedFile.h"
#include "graphics/Frame.h"
#include "lenslark/frame_file.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Owns one frame file and publishes frames in it (docs/frame-file.md).
///
/// **Threads**: `write` and `sceneMode` one at a time (the feed output's lock); `heartbeat` any.
/// **Owns** the mapping. The file itself stays when the writer goes; its writer pid becomes 0.
class SharedFrameWriter {
 public:
  /// Creates the file, mode 0600, or takes an older one over. **Fails** with std::system_error.
  SharedFrameWriter(const std::string& path, int maxWidth, int maxHeight, LLCamera camera);
  ~SharedFrameWriter();
  SharedFrameWriter(const SharedFrameWriter&) = delete;
  SharedFrameWriter& operator=(const SharedFrameWriter&) = delete;

  /// Draws a frame into the slot that readers are not looking at and publishes it. Drops a frame
  /// that is larger than a slot or cannot be drawn.
  void write(const Frame& frame, ContentKind kind) noexcept;

  /// The same for pictures that are put together: `draw` fills a span of exactly `size` in the slot
  /// and returns whether it could.
  template <typename Draw>
  void write(Size size, ContentKind kind, Draw&& draw) noexcept;

  void heartbeat() noexcept;

  /// Whether `path` still names the file that is being written.
  bool stillInPlace() const noexcept;

  LLSceneMode sceneMode() const noexcept;
  void setSceneMode(LLSceneMode mode) noexcept;
  const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
};

}  // namespace lenslark
