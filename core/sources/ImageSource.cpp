#include "sources/ImageSource.h"

#include "media/ImageLoader.h"
#include "media/MediaError.h"

namespace lenslark {

ImageSource::ImageSource(std::filesystem::path file) : file_(std::move(file)) {}

void ImageSource::start(Emit emit) {
  auto picture = ImageLoader::load(file_, maxPixelSize);
  if (!picture) throw MediaError::unsupported(file_.filename().string());
  emit(std::move(picture));
}

}  // namespace lenslark
