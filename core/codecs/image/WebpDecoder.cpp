#include "codecs/image/WebpDecoder.h"

#include <webp/decode.h>
#include <webp/demux.h>

namespace lenslark::WebpDecoder {
namespace {

using Demuxer = std::unique_ptr<WebPDemuxer, decltype(&WebPDemuxDelete)>;

std::uint32_t property(const Demuxer& demuxer, WebPFormatFeature feature) {
  return WebPDemuxGetI(demuxer.get(), feature);
}

Size canvas(const Demuxer& demuxer) {
  return {static_cast<int>(property(demuxer, WEBP_FF_CANVAS_WIDTH)),
          static_cast<int>(property(demuxer, WEBP_FF_CANVAS_HEIGHT))};
}

std::vector<std::byte> profileOf(const Demuxer& demuxer) {
  WebPChunkIterator chunk{};
  std::vector<std::byte> profile;
  if ((property(demuxer, WEBP_FF_FORMAT_FLAGS) & ICCP_FLAG) != 0 &&
      WebPDemuxGetChunk(demuxer.get(), "ICCP", 1, &chunk) != 0) {
    const auto bytes = std::as_bytes(std::span(chunk.chunk.bytes, chunk.chunk.size));
    profile.assign(bytes.begin(), bytes.end());
  }
  WebPDemuxReleaseChunkIterator(&chunk);
  return profile;
}

PixelRect placeOf(const WebPIterator& frame) {
  return {frame.x_offset, frame.y_offset, frame.width, frame.height};
}

/// Draws the frame into the picture, which is as large as its canvas.
bool draw(const WebPIterator& frame, const Picture& picture) {
  const auto [x, y, width, height] = placeOf(frame);
  const auto& [size, bands, pixels, profile] = picture;
  if (x < 0 || y < 0 || width > size.width - x || height > size.height - y) return false;
  const int stride = size.width * bands;
  const auto all = static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height);
  const auto before = static_cast<std::size_t>(stride) * static_cast<std::size_t>(y) +
                      static_cast<std::size_t>(x) * static_cast<std::size_t>(bands);
  const auto decodeInto = bands == 3 ? WebPDecodeRGBInto : WebPDecodeRGBAInto;
  return decodeInto(frame.fragment.bytes, frame.fragment.size, pixels.get() + before, all - before,
                    stride) != nullptr;
}

std::optional<Picture> firstPicture(const Demuxer& demuxer, const WebPIterator& frame) {
  const Size size = canvas(demuxer);
  const bool covers = placeOf(frame) == PixelRect{0, 0, size.width, size.height};
  Picture picture{.size = size,
                  .bands = covers && frame.has_alpha == 0 ? 3 : 4,
                  .pixels = {},
                  .profile = profileOf(demuxer)};
  const auto bytes = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) *
                     static_cast<std::size_t>(picture.bands);
  // What the frame leaves of its canvas is transparent.
  picture.pixels = covers ? std::make_unique_for_overwrite<std::uint8_t[]>(bytes)
                          : std::make_unique<std::uint8_t[]>(bytes);
  if (!draw(frame, picture)) return std::nullopt;
  return picture;
}

}  // namespace

std::optional<Picture> decode(std::span<const std::byte> file, Size size) {
  const WebPData data{reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
  const Demuxer demuxer(WebPDemux(&data), WebPDemuxDelete);
  if (!demuxer || canvas(demuxer) != size) return std::nullopt;
  WebPIterator frame{};
  std::optional<Picture> picture;
  if (WebPDemuxGetFrame(demuxer.get(), 1, &frame) != 0 && frame.complete != 0) {
    picture = firstPicture(demuxer, frame);
  }
  WebPDemuxReleaseIterator(&frame);
  return picture;
}

}  // namespace lenslark::WebpDecoder
