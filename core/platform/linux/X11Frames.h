#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "graphics/PixelBuffer.h"
#include "platform/linux/Region.h"

namespace lenslark {

/// The pictures that a stream hands out: a few buffers of one size that take turns. Each remembers
/// where it is out of date, so that where little changes little has to be drawn.
///
/// **Threads**: the stream's; the pictures may be let go of on any.
class X11Frames {
 public:
  explicit X11Frames(Size size);

  Size size() const noexcept { return size_; }

  /// From now on every buffer is out of date there.
  void outdate(const Region& region);

  struct Frame {
    std::shared_ptr<PixelBuffer> buffer;
    Region* outdated;  ///< What is to be drawn; left for the next turn to say what must be then.
  };
  /// A buffer that nobody looks at. **Fails** with std::bad_alloc.
  Frame take();

 private:
  struct Slot {
    explicit Slot(Size size) : buffer(size, true) {}

    PixelBuffer buffer;
    Region outdated;
    bool free = true;  // guarded by the mutex
  };
  struct Slots {
    std::mutex mutex;
    std::vector<std::unique_ptr<Slot>> all;
  };

  Slot& freeSlot();

  const Size size_;
  const std::shared_ptr<Slots> slots_ = std::make_shared<Slots>();
};

}  // namespace lenslark
