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

/// Draws the frame into that part of the picture, which has the frame's shape.
bool draw(const WebPIterator& frame, const PixelRect& part, const Picture& picture) {
  WebPDecoderConfig config;
  if (WebPInitDecoderConfig(&config) == 0) return false;
  config.options.use_scaling = part.size() == Size{frame.width, frame.height} ? 0 : 1;
  config.options.scaled_width = part.width;
  config.options.scaled_height = part.height;
  const int stride = picture.size.width * picture.bands;
  const auto all = static_cast<std::size_t>(stride) * static_cast<std::size_t>(picture.size.height);
  const auto before = static_cast<std::size_t>(stride) * static_cast<std::size_t>(part.y) +
                      static_cast<std::size_t>(part.x) * static_cast<std::size_t>(picture.bands);
  config.output.colorspace = picture.bands == 3 ? MODE_RGB : MODE_RGBA;
  config.output.is_external_memory = 1;
  config.output.u.RGBA = {picture.pixels.get() + before, stride, all - before};
  return WebPDecode(frame.fragment.bytes, frame.fragment.size, &config) == VP8_STATUS_OK;
}

std::optional<Picture> firstPicture(const Demuxer& demuxer, const WebPIterator& frame,
                                    Size wanted) {
  const Size stored = canvas(demuxer);
  const PixelRect place{frame.x_offset, frame.y_offset, frame.width, frame.height};
  if (place.x < 0 || place.y < 0 || place.width > stored.width - place.x ||
      place.height > stored.height - place.y) {
    return std::nullopt;
  }
  const bool fills = place.size() == stored;
  Picture picture{.size = fills ? wanted : stored,
                  .bands = fills && frame.has_alpha == 0 ? 3 : 4,
                  .pixels = {},
                  .profile = profileOf(demuxer)};
  const auto bytes = static_cast<std::size_t>(picture.size.width) *
                     static_cast<std::size_t>(picture.size.height) *
                     static_cast<std::size_t>(picture.bands);
  // What the frame leaves of its canvas is transparent.
  picture.pixels = fills ? std::make_unique_for_overwrite<std::uint8_t[]>(bytes)
                         : std::make_unique<std::uint8_t[]>(bytes);
  const PixelRect part = fills ? PixelRect{0, 0, wanted.width, wanted.height} : place;
  if (!draw(frame, part, picture)) return std::nullopt;
  return picture;
}

}  // namespace

std::optional<Picture> decode(std::span<const std::byte> file, Size stored, Size wanted) {
  const WebPData data{reinterpret_cast<const std::uint8_t*>(file.data()), file.size()};
  const Demuxer demuxer(WebPDemux(&data), WebPDemuxDelete);
  if (!demuxer || canvas(demuxer) != stored) return std::nullopt;
  WebPIterator frame{};
  std::optional<Picture> picture;
  if (WebPDemuxGetFrame(demuxer.get(), 1, &frame) != 0 && frame.complete != 0) {
    picture = firstPicture(demuxer, frame, wanted);
  }
  WebPDemuxReleaseIterator(&frame);
  return picture;
}

}  // namespace lenslark::WebpDecoder
