#include "codecs/video/PlanarFrame.h"

#include <libyuv/convert_argb.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "graphics/LookUpPages.h"

namespace lenslark::video {
namespace {

/// Memory that grows to what was asked for and stays, so that drawing allocates nothing in the
/// long run.
class Scratch {
 public:
  std::uint8_t* atLeast(std::size_t bytes) {
    if (memory_.size() < bytes) memory_.resize(bytes);
    return memory_.data();
  }

 private:
  std::vector<std::uint8_t> memory_;
};

template <typename Function>
bool convertBytes(Function function, const Planes& planes, const libyuv::YuvConstants& matrix,
                  const PixelSpan& target) noexcept {
  const auto& [y, u, v] = planes.planes;
  return function(y.data, y.stride, u.data, u.stride, v.data, v.stride, target.data,
                  static_cast<int>(target.stride), &matrix, target.size.width,
                  target.size.height) == 0;
}

/// libyuv counts the strides of 16-bit planes in samples.
template <typename Function>
bool convertWords(Function function, const Planes& planes, const libyuv::YuvConstants& matrix,
                  const PixelSpan& target) noexcept {
  const auto words = [](const Plane& plane) {
    return reinterpret_cast<const std::uint16_t*>(plane.data);
  };
  const auto& [y, u, v] = planes.planes;
  return function(words(y), y.stride / 2, words(u), u.stride / 2, words(v), v.stride / 2,
                  target.data, static_cast<int>(target.stride), &matrix, target.size.width,
                  target.size.height) == 0;
}

}  // namespace

PlanarFrame::PlanarFrame(const Planes& planes, Depth depth, const libyuv::YuvConstants& matrix,
                         const ToneMap* toneMap, std::shared_ptr<const void> owner)
    : planes_(planes),
      depth_(depth),
      matrix_(matrix),
      toneMap_(toneMap),
      owner_(std::move(owner)) {}

bool PlanarFrame::draw(const PixelRect& part, const PixelSpan& target) const noexcept {
  bool drawn = false;
  try {
    const bool asItIs = part == bounds() && target.size == size();
    drawn = asItIs ? convert(planes_, depth_, target) : drawScaled(part, target);
  } catch (const std::bad_alloc&) {
    return false;
  }
  if (drawn && toneMap_ != nullptr) toneMap_->apply(target);
  return drawn;
}

bool PlanarFrame::drawScaled(const PixelRect& part, const PixelSpan& target) const {
  thread_local Scratch reduced;
  thread_local Scratch scaled;

  Planes planes = planes_;
  if (depth_ == Depth::ten) {
    planes = reduceInto(planes_, reduced.atLeast(bytesOf(size(), planes_.chroma)));
  }
  planes = crop(planes, part);
  if (planes.size() != target.size) {
    std::uint8_t* memory = scaled.atLeast(bytesOf(target.size, planes.chroma));
    planes = scaleInto(planes, target.size, planes.chroma, memory);
  }
  return convert(planes, Depth::eight, target);
}

bool PlanarFrame::convert(const Planes& planes, Depth depth,
                          const PixelSpan& target) const noexcept {
  constexpr int most = 4;  // rows; two at least, which share their colours
  const auto [width, height] = target.size;
  for (int y = 0; y < height; y += most) {
    const PixelRect rows{0, y, width, std::min(most, height - y)};
    const int next = y + most;
    if (next < height) {
      lookUpPages(target.row(next), static_cast<std::size_t>(target.stride) *
                                        static_cast<std::size_t>(std::min(most, height - next)));
    }
    if (!convertRows(crop(planes, rows), depth, target.part(rows))) return false;
  }
  return true;
}

bool PlanarFrame::convertRows(const Planes& planes, Depth depth,
                              const PixelSpan& target) const noexcept {
  const bool deep = depth == Depth::ten;
  switch (planes.chroma) {
    case Chroma::quarter:
      return deep ? convertWords(libyuv::I010ToARGBMatrix, planes, matrix_, target)
                  : convertBytes(libyuv::I420ToARGBMatrix, planes, matrix_, target);
    case Chroma::half:
      return deep ? convertWords(libyuv::I210ToARGBMatrix, planes, matrix_, target)
                  : convertBytes(libyuv::I422ToARGBMatrix, planes, matrix_, target);
    case Chroma::full:
      return deep ? convertWords(libyuv::I410ToARGBMatrix, planes, matrix_, target)
                  : convertBytes(libyuv::I444ToARGBMatrix, planes, matrix_, target);
  }
  return false;
}

}  // namespace lenslark::video
