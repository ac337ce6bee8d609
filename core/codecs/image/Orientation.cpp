#include "codecs/image/Orientation.h"

#include <libyuv/planar_functions.h>
#include <libyuv/rotate_argb.h>

namespace lenslark {
namespace {

using Picture = std::shared_ptr<PixelBuffer>;

Picture turned(Picture picture, libyuv::RotationMode mode) {
  if (mode == libyuv::kRotate0) return picture;
  const bool upended = mode != libyuv::kRotate180;
  const Size size = picture->size();
  auto result = std::make_shared<PixelBuffer>(upended ? Size{size.height, size.width} : size,
                                              picture->opaque());
  const PixelView from = picture->view();
  const PixelSpan to = result->span();
  const int status = libyuv::ARGBRotate(from.data, static_cast<int>(from.stride), to.data,
                                        static_cast<int>(to.stride), size.width, size.height, mode);
  return status == 0 ? result : nullptr;
}

Picture mirrored(const Picture& picture) {
  auto result = std::make_shared<PixelBuffer>(picture->size(), picture->opaque());
  const PixelView from = picture->view();
  const PixelSpan to = result->span();
  const int status =
      libyuv::ARGBMirror(from.data, static_cast<int>(from.stride), to.data,
                         static_cast<int>(to.stride), from.size.width, from.size.height);
  return status == 0 ? result : nullptr;
}

libyuv::RotationMode turnOf(int orientation) noexcept {
  switch (orientation) {
    case 3:
    case 4:
      return libyuv::kRotate180;
    case 5:
    case 6:
      return libyuv::kRotate90;
    case 7:
    case 8:
      return libyuv::kRotate270;
    default:
      return libyuv::kRotate0;
  }
}

constexpr bool isMirrored(int orientation) noexcept {
  return orientation == 2 || orientation == 4 || orientation == 5 || orientation == 7;
}

}  // namespace

std::shared_ptr<PixelBuffer> upright(std::shared_ptr<PixelBuffer> stored, int orientation) {
  if (!stored) return nullptr;
  Picture result = turned(std::move(stored), turnOf(orientation));
  return result && isMirrored(orientation) ? mirrored(result) : result;
}

}  // namespace lenslark
