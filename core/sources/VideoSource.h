#pragma once

#include <filesystem>
#include <memory>
#include <mutex>

#include "sources/FrameSource.h"

namespace lenslark {

class VideoPlayer;

/// Plays a film's pictures at the times that the film gives them.
///
/// Pictures are decoded ahead of their time, on the queue "lenslark.video.decode"; a timer on
/// "lenslark.video" shows each when it is due, at most one in each period of 1/maxFPS (min(maxFPS,
/// 30) for a film that tells no rate of its own). Of several that are due the latest is shown: a
/// film that cannot be kept up with skips, and never lags. With `loop` the first picture follows
/// the last after the time of one picture, in the same open film; without, the last one stays.
/// A film that breaks off while it plays leaves its last picture and a `problem`.
///
/// **Threads**: as FrameSource.
class VideoSource final : public FrameSource {
 public:
  VideoSource(std::filesystem::path path, bool loop, int maxFPS);
  ~VideoSource() override;

  ContentKind kind() const noexcept override { return ContentKind::video; }
  void start(Emit emit) override;
  void stop() override;
  std::optional<std::string> problem() const override;

 private:
  const std::filesystem::path path_;
  const bool loop_;
  const int maxFPS_;

  mutable std::mutex mutex_;  // guards the pointer
  std::shared_ptr<VideoPlayer> player_;
};

}  // namespace lenslark
