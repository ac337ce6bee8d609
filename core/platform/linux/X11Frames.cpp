#include "platform/linux/X11Frames.h"

namespace lenslark {

X11Frames::X11Frames(Size size) : size_(size) {}

void X11Frames::outdate(const Region& region) {
  for (const auto& slot : slots_->all) slot->outdated.add(region);
}

X11Frames::Slot& X11Frames::freeSlot() {
  const std::lock_guard lock(slots_->mutex);
  for (const auto& slot : slots_->all) {
    if (!slot->free) continue;
    slot->free = false;
    return *slot;
  }
  Slot& fresh = *slots_->all.emplace_back(std::make_unique<Slot>(size_));
  fresh.outdated = Region({0, 0, size_.width, size_.height});
  fresh.free = false;
  return fresh;
}

X11Frames::Frame X11Frames::take() {
  Slot& slot = freeSlot();
  const auto giveBack = [slots = slots_, &slot](PixelBuffer*) {
    const std::lock_guard lock(slots->mutex);
    slot.free = true;
  };
  return {{&slot.buffer, giveBack}, &slot.outdated};
}

}  // namespace lenslark
