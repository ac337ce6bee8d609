#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "base/FileDescriptor.h"
#include "base/MappedFile.h"
#include "config/Lenslark.h"
#include "graphics/Frame.h"
#include "lenslark/frame_file.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Owns one frame file and publishes frames in it (docs/frame-file.md).
///
/// Somebody may cut the file short while it is mapped, and touching what is gone would end the
/// process. Every operation therefore looks at the file's length first and does nothing when it is
/// too short; what remains is the moment between that look and the last pixel. Whoever owns a
/// writer asks `stillInPlace` now and then and makes a new one when it is not.
///
/// Whoever opens the file last is its writer. One that was taken over from leaves the file alone
/// from then on, and asks `isVacant` now and then whether it may have it back.
///
/// **Threads**: `write`, `close` and `setSceneMode` one at a time (the feed output's lock); the
/// rest any.
/// **Owns** the mapping. The file itself stays when the writer goes; its writer pid becomes 0.
class SharedFrameWriter {
 public:
  /// For a frame of the usual size. A file has room for far larger ones, which would be five times
  /// the memory where its file system is in memory.
  static constexpr std::size_t usualRoom =
      std::size_t{Lenslark::defaultWidth} * Lenslark::defaultHeight * LL_FRAME_BYTES_PER_PIXEL;

  /// Creates the file, mode 0600, or takes an older one over: its scene mode stays and its counters
  /// go on, so that a reader that has it mapped notices. `room` bytes of each slot are allocated at
  /// once, so that a full disk shows here and not as a signal later; a frame that needs more makes
  /// more. **Fails** with std::system_error.
  SharedFrameWriter(const std::string& path, int maxWidth, int maxHeight, LLCamera camera,
                    std::size_t room = usualRoom);
  ~SharedFrameWriter();
  SharedFrameWriter(const SharedFrameWriter&) = delete;
  SharedFrameWriter& operator=(const SharedFrameWriter&) = delete;

  /// Draws a frame into the slot that readers are not looking at and publishes it. Drops a frame
  /// that is larger than a slot, for which there is no room on the disk or that cannot be drawn,
  /// and each while the file is another's. Returns whether it was published.
  bool write(const Frame& frame, ContentKind kind) noexcept;

  /// The same for pictures that are put together: `draw` fills a span of exactly `size` in the slot
  /// and returns whether it could.
  template <typename Draw>
  bool write(Size size, ContentKind kind, Draw&& draw) noexcept;

  /// Marks the file as alive. What tells that it is a frame file, should somebody have overwritten
  /// it, is written anew.
  void heartbeat() noexcept;

  /// Whether `path` still names the file that is being written, at its full length.
  bool stillInPlace() const noexcept;

  /// Whether another process has taken the file over.
  bool isTakenOver() const noexcept { return isWhole() && !isOurs(); }
  /// Whether that process has closed the file since, or shows no sign of life any more.
  bool isVacant() const noexcept;

  /// The bytes of a slot that could not be allocated when a frame needed them; 0 while all could.
  std::size_t missingRoom() const noexcept { return missingRoom_; }

  /// Gives the file up: its writer pid becomes 0, and nothing is written to it any more.
  void close() noexcept;

  LLSceneMode sceneMode() const noexcept;
  void setSceneMode(LLSceneMode mode) noexcept;
  const std::string& path() const noexcept { return path_; }

 private:
  LLFrameHeader& header() const noexcept;
  bool isWhole() const noexcept;
  bool isOurs() const noexcept;
  void writeHeader() noexcept;
  /// What stays the same for as long as the file is ours: where what lies, and that it does.
  void describeFile() noexcept;
  void signFile() noexcept;
  bool isSigned() const noexcept;

  bool fits(Size size) const noexcept;
  bool hasRoom(Size size) noexcept;
  bool makeRoom(std::size_t bytes) noexcept;
  std::uint32_t frontSlot() const noexcept;
  PixelSpan slotPixels(std::uint32_t slot, Size size) const noexcept;
  PixelSpan beginSlot(std::uint32_t slot, Size size) noexcept;
  void endSlot(std::uint32_t slot, Size size, ContentKind kind) noexcept;
  void publish(std::uint32_t slot, ContentKind kind) noexcept;
  void repeatInFirstSlot(Size size, ContentKind kind) noexcept;

  // Constant after construction.
  std::string path_;
  std::size_t capacity_ = 0;
  LLCamera camera_ = LLCameraDevice;
  FileDescriptor file_;
  MappedFile mapping_;

  std::size_t room_ = 0;  // of each slot: what is allocated; the writing thread's
  std::atomic<std::size_t> missingRoom_ = 0;
};

template <typename Draw>
bool SharedFrameWriter::write(Size size, ContentKind kind, Draw&& draw) noexcept {
  if (!fits(size) || !isWhole() || !isOurs() || !hasRoom(size)) return false;
  const std::uint32_t target = 1U - frontSlot();
  if (!std::forward<Draw>(draw)(beginSlot(target, size))) {
    // What the slot held is partly painted over: it holds no frame now.
    endSlot(target, Size{}, kind);
    return false;
  }
  endSlot(target, size, kind);
  publish(target, kind);
  // A still picture comes once, and the oldest readers know the first slot alone.
  if (kind == ContentKind::still && target == 1) repeatInFirstSlot(size, kind);
  return true;
}

}  // namespace lenslark
