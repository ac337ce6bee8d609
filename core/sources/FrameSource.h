#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "graphics/Frame.h"
#include "lenslark/frame_file.h"

namespace lenslark {

/// What the frames of a source are; written with every frame.
enum class ContentKind : std::uint32_t {
  live = LLContentKindLive,
  still = LLContentKindStill,
  video = LLContentKindVideo,
  pattern = LLContentKindPattern
};

/// Nothing for a value that is none of the four.
constexpr std::optional<ContentKind> contentKind(std::uint32_t rawValue) noexcept {
  if (rawValue > LLContentKindPattern) return std::nullopt;
  return static_cast<ContentKind>(rawValue);
}

/// Produces pictures once it was started.
///
/// **Threads**: `start` and `stop` are called once each, one after the other, on a queue that may
/// block; `emit` is called on whatever thread the source works on, one call at a time.
class FrameSource {
 public:
  using Emit = std::function<void(FramePtr)>;

  virtual ~FrameSource() = default;

  virtual ContentKind kind() const noexcept = 0;

  /// Opens what is needed and begins to emit. Returns when the source runs (or has emitted all it
  /// ever will). **Fails** with Error; nothing is emitted then.
  virtual void start(Emit emit) = 0;

  /// Ends the emission; returns when no further frame will come. Harmless before `start`.
  virtual void stop() = 0;

  /// Why a source that was started does not show what it should, in words; nothing while all is
  /// well. **Threads**: any.
  virtual std::optional<std::string> problem() const { return std::nullopt; }
};

/// Takes pictures. **Threads**: any, also several at once.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void deliver(const FramePtr& frame, ContentKind kind) noexcept = 0;
};

}  // namespace lenslark
