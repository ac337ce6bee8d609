#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "base/SerialQueue.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Shows pictures in turn, each for the same time. One that cannot be read is passed over: its time
/// goes by with the picture before it.
class SlideshowSource final : public FrameSource {
 public:
  static constexpr double minIntervalSec = 0.5;
  static constexpr double maxIntervalSec = 60;

  /// Reads one picture; null when it cannot be shown. Called on the slideshow's queue.
  using Loader = std::function<FramePtr(const std::filesystem::path&)>;

  /// An empty file name stands for a picture that cannot be read. The interval is held between the
  /// bounds above. `load` is `ImageLoader` for all but tests.
  SlideshowSource(std::vector<std::filesystem::path> files, double intervalSec, Loader load = {});
  ~SlideshowSource() override;

  ContentKind kind() const noexcept override { return ContentKind::still; }

  /// **Fails** with MediaError when there are no pictures to show.
  void start(Emit emit) override;
  void stop() override;
  std::optional<std::string> problem() const override;

  double intervalSec() const noexcept;

 private:
  struct Show;
  std::shared_ptr<Show> show_;
  SerialQueue queue_;
  RepeatingTimer timer_;
};

}  // namespace lenslark
