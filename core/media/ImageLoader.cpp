#include "media/ImageLoader.h"

#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "base/WholeFile.h"
#include "codecs/Modules.h"
#include "media/VectorPicture.h"

namespace lenslark::ImageLoader {
namespace {

std::optional<VectorPicture::Format> vectorFormat(const FileDescriptor& file,
                                                  const std::filesystem::path& path) {
  return VectorPicture::recognise(file, Text::lowercase(path.extension().string()));
}

}  // namespace

std::shared_ptr<PixelBuffer> load(const std::filesystem::path& path, int maxPixelSize) {
  const FileDescriptor file = openRegularFile(path.string());
  if (!file || maxPixelSize < 1) return nullptr;
  const auto format = vectorFormat(file, path);
  if (format == VectorPicture::Format::pdf) return VectorPicture::drawPdf(file, maxPixelSize);
  ImageCodec& codec = Modules::imageCodec();
  if (format == VectorPicture::Format::svg) {
    const auto size = codec.measure(path.string());
    return size ? VectorPicture::drawSvg(file, boundedBy(*size, maxPixelSize)) : nullptr;
  }
  return codec.load(path.string(), maxPixelSize);
}

std::optional<Size> measure(const std::filesystem::path& path, int maxPixelSize) {
  const FileDescriptor file = openRegularFile(path.string());
  if (!file || maxPixelSize < 1) return std::nullopt;
  if (vectorFormat(file, path) == VectorPicture::Format::pdf) {
    return VectorPicture::measurePdf(file, maxPixelSize);
  }
  const auto size = Modules::imageCodec().measure(path.string());
  return size ? std::optional(boundedBy(*size, maxPixelSize)) : std::nullopt;
}

}  // namespace lenslark::ImageLoader
