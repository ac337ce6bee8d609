#pragma once

#include "sources/FrameSource.h"

namespace lenslark {

/// A source whose picture depends on where a window is now.
class WindowFollowingSource : public FrameSource {
 public:
  /// Films where the window has gone. Returns whether it had moved; false too before `start`, after
  /// `stop` and while the window is gone. Quick enough for thirty calls a second.
  /// **Threads**: one call at a time, at any moment of the source's life.
  virtual bool track() = 0;
};

}  // namespace lenslark
