#include "codecs/image/JpegEncoder.h"

#include <fmt/core.h>
#include <turbojpeg.h>

#include <algorithm>
#include <memory>

#include "base/Error.h"

namespace lenslark::JpegEncoder {

std::vector<std::byte> encode(const PixelView& picture, int quality) {
  // Where nearly nothing may be lost, the colours keep all their pixels, too.
  constexpr int finest = 90;
  const int sampling = quality >= finest ? TJSAMP_444 : TJSAMP_420;
  const auto [width, height] = picture.size;
  const std::unique_ptr<void, decltype(&tjDestroy)> encoder(tjInitCompress(), tjDestroy);
  std::vector<std::byte> file(tjBufSize(width, height, sampling));
  auto* bytes = reinterpret_cast<unsigned char*>(file.data());
  unsigned long size = file.size();
  // Premultiplied colours over black are what they are.
  if (!encoder || tjCompress2(encoder.get(), picture.data, width, static_cast<int>(picture.stride),
                              height, TJPF_BGRX, &bytes, &size, sampling,
                              std::clamp(quality, 1, 100), TJFLAG_NOREALLOC) != 0) {
    throw Error(fmt::format("the picture cannot be written as JPEG: {}",
                            encoder ? tjGetErrorStr2(encoder.get()) : "out of memory"));
  }
  file.resize(size);
  return file;
}

}  // namespace lenslark::JpegEncoder
