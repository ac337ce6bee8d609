#include "codecs/image/JpegDecoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <span>
#include <vector>

#include "codecs/image/Orientation.h"
#include "graphics/Compositor.h"

namespace lenslark::JpegDecoder {
namespace {

using Picture = std::shared_ptr<PixelBuffer>;

Picture make(Size size) { return std::make_shared<PixelBuffer>(size, true); }

/// The smallest size that the codec can decode to and that covers `wanted`.
Size decodedSize(Size stored, Size wanted) {
  int count = 0;
  const tjscalingfactor* const factors = tjGetScalingFactors(&count);
  Size best = stored;
  for (const tjscalingfactor& factor : std::span(factors, static_cast<std::size_t>(count))) {
    const Size size{TJSCALED(stored.width, factor), TJSCALED(stored.height, factor)};
    if (size.width >= wanted.width && size.height >= wanted.height && size.width < best.width) {
      best = size;
    }
  }
  return best;
}

Picture decodeAt(std::span<const std::byte> file, Size stored, Size wanted) {
  const std::unique_ptr<void, decltype(&tjDestroy)> decoder(tjInitDecompress(), tjDestroy);
  const auto* const bytes = reinterpret_cast<const unsigned char*>(file.data());
  int width = 0;
  int height = 0;
  int sampling = 0;
  int colours = 0;
  if (!decoder || tjDecompressHeader3(decoder.get(), bytes, file.size(), &width, &height, &sampling,
                                      &colours) != 0) {
    return nullptr;
  }
  if (Size{width, height} != stored || colours == TJCS_CMYK || colours == TJCS_YCCK) {
    return nullptr;
  }
  const Size size = decodedSize(stored, wanted);
  auto picture = make(size);
  const PixelSpan target = picture->span();
  // A warning may mean half a picture, and as many passes as a file likes may take for ever.
  constexpr int flags = TJFLAG_STOPONWARNING | TJFLAG_LIMITSCANS;
  const int status = tjDecompress2(decoder.get(), bytes, file.size(), target.data, size.width,
                                   static_cast<int>(target.stride), size.height, TJPF_BGRA, flags);
  return status == 0 ? picture : nullptr;
}

Picture scaled(Picture picture, Size size) {
  if (picture->size() == size) return picture;
  auto result = make(size);
  return Compositor::scale(picture->view(), result->span()) ? result : nullptr;
}

}  // namespace

std::shared_ptr<PixelBuffer> decode(const PictureSource& source, Size stored, int orientation,
                                    int maxSide) {
  constexpr std::size_t largestFile = 64UL << 20;
  if (source.size() > largestFile) return nullptr;
  const std::vector<std::byte> file = source.contents();
  const Size wanted = boundedBy(stored, maxSide);
  Picture picture = decodeAt(file, stored, wanted);
  if (picture) picture = scaled(std::move(picture), wanted);
  return picture ? upright(std::move(picture), orientation) : nullptr;
}

}  // namespace lenslark::JpegDecoder
