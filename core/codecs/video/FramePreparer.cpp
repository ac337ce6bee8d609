#include "codecs/video/FramePreparer.h"

#include <cstring>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "graphics/Compositor.h"
#include "graphics/PixelBuffer.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <libyuv/planar_functions.h>
#include <libyuv/rotate_argb.h>

namespace lenslark::video {
namespace {

struct Layout {
  Chroma chroma;
  Depth depth;
};

/// The planar formats that are drawn from their planes; all others go through libswscale.
std::optional<Layout> layoutOf(int format) noexcept {
  switch (format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
      return Layout{Chroma::quarter, Depth::eight};
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
      return Layout{Chroma::half, Depth::eight};
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P:
      return Layout{Chroma::full, Depth::eight};
    case AV_PIX_FMT_YUV420P10LE:
      return Layout{Chroma::quarter, Depth::ten};
    case AV_PIX_FMT_YUV422P10LE:
      return Layout{Chroma::half, Depth::ten};
    case AV_PIX_FMT_YUV444P10LE:
      return Layout{Chroma::full, Depth::ten};
    default:
      return std::nullopt;
  }
}

/// A tag as the film has it: some decoders pass on what no enumerator stands for, and such an
/// enumeration must not even be looked at.
template <typename Tag>
Tag tagOf(const Tag& field, Tag unspecified, Tag end) noexcept {
  std::underlying_type_t<Tag> value{};
  static_assert(sizeof value == sizeof field);
  std::memcpy(&value, &field, sizeof value);
  return value < static_cast<decltype(value)>(end) ? static_cast<Tag>(value) : unspecified;
}

bool isFullRange(const AVFrame& frame) noexcept {
  switch (frame.format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
      return true;
    default:
      return tagOf(frame.color_range, AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_NB) == AVCOL_RANGE_JPEG;
  }
}

ColorTags tagsOf(const AVFrame& frame) noexcept {
  return {tagOf(frame.colorspace, AVCOL_SPC_UNSPECIFIED, AVCOL_SPC_NB), isFullRange(frame),
          tagOf(frame.color_trc, AVCOL_TRC_UNSPECIFIED, AVCOL_TRC_NB)};
}

Planes planesOf(const AVFrame& frame, Chroma chroma) noexcept {
  const Size size{frame.width, frame.height};
  const Size colour = chromaSize(size, chroma);
  return {{Plane{frame.data[0], frame.linesize[0], size},
           Plane{frame.data[1], frame.linesize[1], colour},
           Plane{frame.data[2], frame.linesize[2], colour}},
          chroma};
}

std::shared_ptr<const void> moveToOwner(AVFrame& frame) {
  AVFrame* owned = av_frame_alloc();
  if (owned == nullptr) throw std::bad_alloc();
  av_frame_move_ref(owned, &frame);
  return {owned, [](AVFrame* last) { av_frame_free(&last); }};
}

bool hasAlpha(int format) noexcept {
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
  return description != nullptr && (description->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

int stride(const PixelSpan& span) noexcept { return static_cast<int>(span.stride); }

void orientPixels(PixelBuffer& from, Orientation orientation, PixelBuffer& to) {
  PixelSpan source = from.span();
  if (orientation.mirrored) {
    libyuv::ARGBMirror(source.data, stride(source), source.data, stride(source), source.size.width,
                       source.size.height);
  }
  libyuv::ARGBRotate(source.data, stride(source), to.span().data, stride(to.span()),
                     source.size.width, source.size.height,
                     static_cast<libyuv::RotationMode>(orientation.quarterTurns * 90));
}

}  // namespace

FramePreparer::FramePreparer(Orientation orientation, Size size)
    : orientation_(orientation), size_(size), drawn_(size, true) {}

FramePreparer::~FramePreparer() {
  sws_freeContext(scaler_);
  av_buffer_pool_uninit(&pool_);
}

FramePtr FramePreparer::prepare(AVFrame& frame) {
  if (const auto layout = layoutOf(frame.format)) {
    return preparePlanes(frame, layout->chroma, layout->depth);
  }
  return convertOther(frame);
}

FramePtr FramePreparer::preparePlanes(AVFrame& frame, Chroma chroma, Depth depth) {
  const ColorTags tags = tagsOf(frame);
  const libyuv::YuvConstants& matrix = yuvConstants(tags, frame.height);
  const ToneMap* toneMap = ToneMap::forTags(tags);
  Planes planes = planesOf(frame, chroma);
  const Size stored = orientation_.apply(size_);
  const bool scaled = stored != planes.size();
  if (!scaled && orientation_.upright()) {
    const auto picture =
        std::make_shared<PlanarFrame>(planes, depth, matrix, toneMap, moveToOwner(frame));
    return toneMap != nullptr ? inMemory(*picture) : picture;
  }

  std::shared_ptr<std::uint8_t> memory;
  if (depth == Depth::ten) {
    memory = takeMemory(bytesOf(planes.size(), chroma));
    planes = reduceInto(planes, memory.get());
  }
  const Chroma kept = chroma == Chroma::half ? Chroma::quarter : chroma;
  if (scaled || kept != chroma) {
    auto next = takeMemory(bytesOf(stored, kept));
    planes = scaleInto(planes, stored, kept, next.get());
    memory = std::move(next);
  }
  if (!orientation_.upright()) {
    auto next = takeMemory(bytesOf(size_, kept));
    planes = orientInto(planes, orientation_, next.get());
    memory = std::move(next);
  }
  const auto picture =
      std::make_shared<PlanarFrame>(planes, Depth::eight, matrix, toneMap, std::move(memory));
  return toneMap != nullptr ? inMemory(*picture) : picture;
}

FramePtr FramePreparer::inMemory(const Frame& frame) {
  auto picture = drawn_.take();
  return frame.draw(frame.bounds(), picture->span()) ? picture : nullptr;
}

FramePtr FramePreparer::convertOther(const AVFrame& frame) {
  const ColorTags tags = tagsOf(frame);
  const Size stored = orientation_.apply(size_);
  scaler_ = sws_getCachedContext(
      scaler_, frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), stored.width,
      stored.height, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (scaler_ == nullptr) return nullptr;
  const int* matrix = sws_getCoefficients(matrixOf(tags, frame.height));
  sws_setColorspaceDetails(scaler_, matrix, tags.fullRange ? 1 : 0, matrix, 1, 0, 1 << 16, 1 << 16);

  const bool translucent = hasAlpha(frame.format);
  auto picture = std::make_shared<PixelBuffer>(stored, !translucent);
  const PixelSpan span = picture->span();
  std::uint8_t* const data[] = {span.data};
  const int strides[] = {stride(span)};
  if (sws_scale(scaler_, frame.data, frame.linesize, 0, frame.height, data, strides) <= 0) {
    return nullptr;
  }
  if (translucent) {
    libyuv::ARGBAttenuate(span.data, stride(span), span.data, stride(span), stored.width,
                          stored.height);
  }
  if (const ToneMap* toneMap = ToneMap::forTags(tags)) toneMap->apply(span);
  if (orientation_.upright()) return picture;
  auto turned = std::make_shared<PixelBuffer>(size_, !translucent);
  orientPixels(*picture, orientation_, *turned);
  return turned;
}

std::shared_ptr<std::uint8_t> FramePreparer::takeMemory(std::size_t bytes) {
  // Steps ask for two or three sizes a frame; one pool of the largest serves them all.
  if (bytes > poolBytes_) {
    av_buffer_pool_uninit(&pool_);
    pool_ = av_buffer_pool_init(bytes, nullptr);
    poolBytes_ = bytes;
  }
  AVBufferRef* buffer = pool_ == nullptr ? nullptr : av_buffer_pool_get(pool_);
  if (buffer == nullptr) throw std::bad_alloc();
  return {buffer->data, [buffer](std::uint8_t*) mutable { av_buffer_unref(&buffer); }};
}

}  // namespace lenslark::video
