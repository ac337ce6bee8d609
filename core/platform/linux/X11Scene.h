#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "platform/Screen.h"
#include "platform/linux/Region.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11Picture.h"

namespace lenslark {

/// What a stream films: keeps up with events and draws the picture's changed part when asked.
/// **Threads**: one at a time, as its connection.
class X11Scene {
 public:
  using Time = std::chrono::steady_clock::time_point;

  virtual ~X11Scene() = default;

  /// The filmed rectangle of the screen. Its size is the picture's.
  virtual PixelRect area() const = 0;
  virtual void handle(const xcb_generic_event_t& event) = 0;

  /// Whether there is something to draw yet.
  virtual bool ready() const { return true; }
  /// Whether the picture changed since `draw`.
  virtual bool dirty() const = 0;
  /// Draws what changed into the picture, or all of it. Returns what it has drawn, counted from
  /// the picture's corner.
  virtual Region draw(X11Picture& picture, bool all) = 0;
  /// Whether something has happened since `draw`, as far as events have been taken in, that may
  /// have spoiled the picture: it must not be shown, and be drawn anew.
  virtual bool spoiled() { return false; }

  /// Films another rectangle, where that is possible.
  virtual void retarget(const PixelRect&) {}
  /// When the scene has something to do by itself, and has it do that.
  virtual std::optional<Time> nextWork() const { return std::nullopt; }
  virtual void work(Time) {}
  /// Why there is nothing to film any more.
  virtual std::optional<CaptureError> ended() const { return std::nullopt; }
};

/// A rectangle of the screen, as if the excluded applications had no windows.
std::unique_ptr<X11Scene> makeAreaScene(const X11Connection& x, const PixelRect& area,
                                        const ExcludedApplications& excluded);

/// A display as it is, wherever it is moved. **Fails** with CaptureError when there is none of that
/// id.
std::unique_ptr<X11Scene> makeDisplayScene(const X11Connection& x, std::uint32_t display);

/// A window's own pixels. **Fails** with CaptureError when there is no such window.
std::unique_ptr<X11Scene> makeWindowScene(const X11Connection& x, xcb_window_t window);

}  // namespace lenslark
