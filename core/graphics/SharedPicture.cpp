#include "graphics/SharedPicture.h"

#include <utility>

#include "graphics/StreamingCopy.h"

namespace lenslark {

SharedPicture::SharedPicture(FramePtr original, std::shared_ptr<const PixelBuffer> whole) noexcept
    : original_(std::move(original)), whole_(std::move(whole)) {}

bool SharedPicture::draw(const PixelRect& part, const PixelSpan& target) const noexcept {
  if (part != bounds() || target.size != size()) return original_->draw(part, target);
  streamingCopy(whole_->view(), target);
  return true;
}

}  // namespace lenslark
