#pragma once

#include "sources/CaptureOptions.h"
#include "sources/FrameSource.h"
#include "sources/ScreenCapturer.h"
#include "sources/StreamFailure.h"

namespace lenslark {

/// A display or a window as a camera's picture. **Threads**: as FrameSource.
class ScreenSource final : public FrameSource {
 public:
  /// The screen must outlive the source.
  ScreenSource(Screen& screen, CaptureOptions options);

  ContentKind kind() const noexcept override { return ContentKind::live; }
  void start(Emit emit) override;
  std::optional<std::string> problem() const override { return failure_.reason(); }
  void stop() override;

 private:
  Screen& screen_;
  const CaptureOptions options_;
  StreamFailure failure_;
  std::optional<ScreenCapturer> capturer_;
};

}  // namespace lenslark
