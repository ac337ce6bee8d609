#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Screen.h"
#include "sources/CaptureOptions.h"

namespace lenslark {

/// Finds what the capture options name and films it.
/// **Threads**: one at a time; frames come on the stream's own thread.
class ScreenCapturer {
 public:
  struct Sources {
    std::vector<DisplayInfo> displays;
    std::vector<WindowInfo> windows;
  };

  ScreenCapturer(Screen& screen, Screen::FrameHandler onFrame, Screen::StopHandler onStop);

  /// **Fails** with CaptureError.
  void start(const CaptureOptions& options);
  void stop();

  /// All displays, and the normal windows of more than 64 x 64. **Fails** with CaptureError.
  static Sources listSources(Screen& screen);

  /// The window that a text stands for. **Fails** with CaptureError.
  static const WindowInfo& findWindow(const std::string& match, const ScreenContent& content);

 private:
  Screen& screen_;
  const Screen::FrameHandler onFrame_;
  const Screen::StopHandler onStop_;
  std::unique_ptr<ScreenStream> stream_;
};

}  // namespace lenslark
