#pragma once

#include <filesystem>

#include "sources/FrameSource.h"

namespace lenslark {

/// Shows one picture: decoded once, emitted once. Whoever joins later gets it from the hub.
class ImageSource final : public FrameSource {
 public:
  /// No side of what a still source shows is longer.
  static constexpr int maxPixelSize = 2048;

  explicit ImageSource(std::filesystem::path file);

  ContentKind kind() const noexcept override { return ContentKind::still; }

  /// **Fails** with MediaError when the file is no picture that can be shown.
  void start(Emit emit) override;
  void stop() override {}

 private:
  const std::filesystem::path file_;
};

}  // namespace lenslark
