#include "graphics/SharedPicture.h"

#include <new>
#include <utility>

#include "graphics/StreamingCopy.h"

namespace lenslark {

SharedPicture::SharedPicture(FramePtr original, std::shared_ptr<PixelBufferPool> pool) noexcept
    : original_(std::move(original)), pool_(std::move(pool)) {}

bool SharedPicture::draw(const PixelRect& part, const PixelSpan& target) const noexcept {
  const bool asItIs = part == bounds() && target.size == size();
  const PixelBuffer* const picture = asItIs ? inMemory() : nullptr;
  if (picture == nullptr) return original_->draw(part, target);
  streamingCopy(picture->view(), target);
  return true;
}

const PixelBuffer* SharedPicture::inMemory() const noexcept {
  if (const PixelBuffer* const original = original_->pixelBuffer()) return original;
  std::call_once(drawn_, [this] { drawIntoMemory(); });
  return memory_.get();
}

void SharedPicture::drawIntoMemory() const noexcept {
  try {
    const auto buffer = pool_->take();
    if (original_->draw(bounds(), buffer->span())) memory_ = buffer;
  } catch (const std::bad_alloc&) {
    // Then each camera has it drawn for itself.
  }
}

}  // namespace lenslark
