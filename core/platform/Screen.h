#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Error.h"
#include "graphics/Frame.h"
#include "graphics/Geometry.h"

namespace lenslark {

/// Something that can be filmed cannot be, in words for the person at the screen.
class CaptureError final : public Error {
 public:
  static CaptureError noDisplay(std::int64_t index);
  static CaptureError noWindow(const std::string& match);
  /// No display server, or none that lets itself be filmed.
  static CaptureError unavailable(const std::string& reason);

 private:
  using Error::Error;
};

/// One monitor. Rectangles are in global screen coordinates, pixels, y downwards.
struct DisplayInfo {
  std::uint32_t id = 0;
  std::string name;
  Rect frame;

  friend bool operator==(const DisplayInfo&, const DisplayInfo&) = default;
};

struct WindowInfo {
  std::uint32_t id = 0;
  std::string title;
  std::string applicationName;   ///< Base name of the owner's executable, else its class.
  std::string bundleIdentifier;  ///< Empty where the platform has none.
  pid_t pid = 0;                 ///< 0 when unknown.
  int layer = 0;                 ///< 0 for normal windows.
  bool onScreen = true;
  Rect frame;

  friend bool operator==(const WindowInfo&, const WindowInfo&) = default;
};

/// What can be captured now.
struct ScreenContent {
  std::vector<DisplayInfo> displays;  ///< In the order of `--display N`.
  std::vector<WindowInfo> windows;    ///< From the front to the back.

  friend bool operator==(const ScreenContent&, const ScreenContent&) = default;
};

/// A running capture. Destroying it ends the capture; no callback runs after that.
class ScreenStream {
 public:
  virtual ~ScreenStream() = default;

  /// For a stream of a rectangle of a display: films this one from the next frame on, at this
  /// size. **Threads**: any.
  virtual void retarget(const PixelRect& area, Size output) = 0;
};

/// Who is left out of a picture.
struct ExcludedApplications {
  std::vector<std::string> bundleIdentifiers;
  /// Applications whose name starts with one of these.
  std::vector<std::string> namePrefixes;
  /// Windows that are left out whoever owns them.
  std::vector<std::uint32_t> windows;
};

/// The system's displays and windows, and streams of their pixels.
/// **Threads**: any.
class Screen {
 public:
  /// Called on a thread of the stream's own with each new picture, only when something changed.
  using FrameHandler = std::function<void(FramePtr)>;
  /// Called once when the capture ends by itself, with why.
  using StopHandler = std::function<void(const Error&)>;

  struct Request {
    Size output;  ///< The pictures' size; the captured area is fitted inside, on black.
    int fps = 30;
    bool showsCursor = true;
  };

  virtual ~Screen() = default;

  /// **Fails** with CaptureError where there is no display, or it may not be filmed.
  virtual ScreenContent content() = 0;

  /// The displays of `content`; where windows are followed, quick enough to be asked as often.
  virtual std::vector<DisplayInfo> displays() { return content().displays; }

  /// A window's rectangle now, nothing when it is gone. Quick when asked again and again.
  virtual std::optional<Rect> windowBounds(std::uint32_t window) = 0;

  /// A display's whole picture. **Fails** with CaptureError.
  virtual std::unique_ptr<ScreenStream> captureDisplay(std::uint32_t display,
                                                       const Request& request, FrameHandler onFrame,
                                                       StopHandler onStop) = 0;

  /// One window's own pixels, whatever covers it. **Fails** with CaptureError.
  virtual std::unique_ptr<ScreenStream> captureWindow(std::uint32_t window, const Request& request,
                                                      FrameHandler onFrame, StopHandler onStop) = 0;

  /// A rectangle in global coordinates, as if the excluded applications had no windows.
  /// **Fails** with CaptureError.
  virtual std::unique_ptr<ScreenStream> captureArea(const PixelRect& area,
                                                    const ExcludedApplications& excluded,
                                                    const Request& request, FrameHandler onFrame,
                                                    StopHandler onStop) = 0;
};

/// The screen of this system. Where there is none, its operations fail.
/// The process must outlive SIGPIPE: a display server that goes away is written to once more.
std::unique_ptr<Screen> makeScreen();

}  // namespace lenslark
