#include "codecs/image/VipsImageCodec.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string_view>

#include "base/Error.h"
#include "codecs/image/BmpDecoder.h"
#include "codecs/image/JpegDecoder.h"
#include "codecs/image/JpegEncoder.h"
#include "codecs/image/Orientation.h"
#include "codecs/image/PictureSource.h"
#include "codecs/image/PngEncoder.h"
#include "codecs/image/RgbaPixels.h"
#include "codecs/image/VipsLibrary.h"
#include "codecs/image/WebpDecoder.h"
#include "graphics/Compositor.h"

namespace lenslark {
namespace {

/// What a picture's header says.
struct Header {
  Size stored;          ///< As the pixels lie in the file.
  Size upright;         ///< After the orientation.
  int orientation = 1;  ///< As EXIF counts them.
  bool hasProfile = false;
  bool plainJpeg = false;  ///< A JPEG of three colours that says no more about them.
  bool vector = false;
  bool webp = false;
};

constexpr bool withinLimits(Size size) noexcept {
  return !size.empty() && size.longerSide() <= VipsImageCodec::longestSide &&
         static_cast<long long>(size.width) * size.height <= VipsImageCodec::largestArea;
}

/// Formats whose decoders take the whole file at once.
bool needsWholeFile(std::string_view loader) noexcept {
  constexpr std::array wholeFile{"Nsgif", "Webp", "Svg"};
  return std::any_of(wholeFile.begin(), wholeFile.end(), [loader](std::string_view format) {
    return loader.find(format) != loader.npos;
  });
}

/// Nothing when it is no picture of a wanted format or beyond the limits.
std::optional<Header> readHeader(const PictureSource& source) {
  constexpr std::size_t wholeFileLimit = 256UL << 20;
  const VipsSourcePtr reader = source.makeReader();
  const char* loader = vips_foreign_find_load_source(reader.get());
  if (loader == nullptr || (needsWholeFile(loader) && source.size() > wholeFileLimit)) {
    vips_error_clear();
    return std::nullopt;
  }
  const VipsImagePtr image(
      vips_image_new_from_source(reader.get(), "", "access", VIPS_ACCESS_SEQUENTIAL, nullptr));
  if (!image) {
    vips_error_clear();
    return std::nullopt;
  }
  Header header;
  header.stored = {vips_image_get_width(image.get()), vips_image_get_height(image.get())};
  header.upright = header.stored;
  if (vips_image_get_orientation_swap(image.get()) != FALSE) {
    std::swap(header.upright.width, header.upright.height);
  }
  header.orientation = vips_image_get_orientation(image.get());
  header.hasProfile = vips_image_get_typeof(image.get(), VIPS_META_ICC_NAME) != 0;
  header.vector = std::string_view(loader).find("Svg") != std::string_view::npos;
  header.webp = std::string_view(loader).find("Webp") != std::string_view::npos;
  header.plainJpeg = std::string_view(loader).find("Jpeg") != std::string_view::npos &&
                     vips_image_get_interpretation(image.get()) == VIPS_INTERPRETATION_sRGB &&
                     vips_image_get_bands(image.get()) == 3 && !header.hasProfile;
  if (!withinLimits(header.stored)) return std::nullopt;
  return header;
}

/// The pixels of an image, tightly packed; null when some cannot be read. They are made on this
/// thread, a few rows at a time and from the top down, as loaders that read a file once want it:
/// libvips's own threads end after 15 seconds without work, and version 8.14 may hand one that is
/// just ending more of it. Then the picture never comes, or memory that is freed is written to.
std::unique_ptr<std::uint8_t[]> evaluate(VipsImage* image) {
  const int width = vips_image_get_width(image);
  const int height = vips_image_get_height(image);
  const std::size_t rowBytes = VIPS_IMAGE_SIZEOF_LINE(image);
  auto pixels =
      std::make_unique_for_overwrite<std::uint8_t[]>(rowBytes * static_cast<std::size_t>(height));
  const VipsRegionPtr region(vips_region_new(image));
  constexpr int strip = 64;
  std::uint8_t* to = pixels.get();
  for (int top = 0; top < height; top += strip) {
    const VipsRect rows{0, top, width, std::min(strip, height - top)};
    if (!region || vips_region_prepare(region.get(), &rows) != 0) {
      vips_error_clear();
      return nullptr;
    }
    for (int y = top; y < top + rows.height; ++y, to += rowBytes) {
      std::memcpy(to, VIPS_REGION_ADDR(region.get(), 0, y), rowBytes);
    }
  }
  return pixels;
}

/// sRGB bytes, three bands or four with straight alpha, into a picture.
std::shared_ptr<PixelBuffer> render(VipsImagePtr image) {
  const auto apply = [&image](auto operation) {
    VipsImage* out = nullptr;
    const int status = operation(image.get(), &out);
    image = VipsLibrary::adopt(status, out);
    return image != nullptr;
  };
  if (vips_image_get_interpretation(image.get()) != VIPS_INTERPRETATION_sRGB &&
      !apply([](VipsImage* in, VipsImage** out) {
        return vips_colourspace(in, out, VIPS_INTERPRETATION_sRGB, nullptr);
      })) {
    return nullptr;
  }
  if (vips_image_get_format(image.get()) != VIPS_FORMAT_UCHAR &&
      !apply([](VipsImage* in, VipsImage** out) { return vips_cast_uchar(in, out, nullptr); })) {
    return nullptr;
  }
  constexpr int mostBands = 4;
  if (vips_image_get_bands(image.get()) > mostBands && !apply([](VipsImage* in, VipsImage** out) {
        return vips_extract_band(in, out, 0, "n", mostBands, nullptr);
      })) {
    return nullptr;
  }
  const int bands = vips_image_get_bands(image.get());
  const Size size{vips_image_get_width(image.get()), vips_image_get_height(image.get())};
  if (bands < 3) return nullptr;
  const auto pixels = evaluate(image.get());
  if (!pixels) return nullptr;
  return RgbaPixels::toPremultiplied(pixels.get(), size, bands,
                                     static_cast<std::ptrdiff_t>(size.width) * bands);
}

// In what follows, colours are only converted where the picture says what they are: asking for sRGB
// regardless would change those that are sRGB already.

std::shared_ptr<PixelBuffer> loadWebp(const PictureSource& source, const Header& header,
                                      int maxSide) {
  const auto decoded =
      WebpDecoder::decode(source.contents(), header.stored, boundedBy(header.stored, maxSide));
  if (!decoded) return nullptr;
  const auto& [size, bands, pixels, profile] = *decoded;
  const auto bytes = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) *
                     static_cast<std::size_t>(bands);
  const VipsImagePtr whole(vips_image_new_from_memory(pixels.get(), bytes, size.width, size.height,
                                                      bands, VIPS_FORMAT_UCHAR));
  if (!whole) throw std::bad_alloc();
  whole->Type = VIPS_INTERPRETATION_sRGB;
  VipsImage* out = nullptr;
  int status = 0;
  if (profile.empty()) {
    status = vips_thumbnail_image(whole.get(), &out, maxSide, "height", maxSide, "size",
                                  VIPS_SIZE_DOWN, nullptr);
  } else {
    vips_image_set_blob_copy(whole.get(), VIPS_META_ICC_NAME, profile.data(), profile.size());
    status = vips_thumbnail_image(whole.get(), &out, maxSide, "height", maxSide, "size",
                                  VIPS_SIZE_DOWN, "export_profile", "srgb", nullptr);
  }
  VipsImagePtr image = VipsLibrary::adopt(status, out);
  return image ? upright(render(std::move(image)), header.orientation) : nullptr;
}

std::shared_ptr<PixelBuffer> loadVips(const PictureSource& source, int maxSide) {
  const auto header = readHeader(source);
  if (!header || header->vector) return nullptr;
  if (header->plainJpeg) {
    if (auto picture = JpegDecoder::decode(source, header->stored, header->orientation, maxSide)) {
      return picture;
    }
  }
  if (header->webp) return loadWebp(source, *header, maxSide);
  const VipsSourcePtr reader = source.makeReader();
  // Half a picture is none. The thumbnailer hands its own "fail_on" to loaders of files alone.
  constexpr const char* options = "[fail_on=truncated]";
  VipsImage* out = nullptr;
  const int status =
      header->hasProfile
          ? vips_thumbnail_source(reader.get(), &out, maxSide, "height", maxSide, "size",
                                  VIPS_SIZE_DOWN, "no_rotate", TRUE, "option_string", options,
                                  "export_profile", "srgb", nullptr)
          : vips_thumbnail_source(reader.get(), &out, maxSide, "height", maxSide, "size",
                                  VIPS_SIZE_DOWN, "no_rotate", TRUE, "option_string", options,
                                  nullptr);
  VipsImagePtr image = VipsLibrary::adopt(status, out);
  return image ? upright(render(std::move(image)), header->orientation) : nullptr;
}

std::shared_ptr<PixelBuffer> loadBmp(const FileDescriptor& file, int maxSide) {
  const auto size = BmpDecoder::measure(file);
  if (!size || !withinLimits(*size)) return nullptr;
  const BmpDecoder::Pixels pixels = BmpDecoder::decode(file, *size);
  if (!pixels) return nullptr;
  auto picture = RgbaPixels::toPremultiplied(gdk_pixbuf_read_pixels(pixels.get()), *size,
                                             gdk_pixbuf_get_n_channels(pixels.get()),
                                             gdk_pixbuf_get_rowstride(pixels.get()));
  const Size bounded = boundedBy(*size, maxSide);
  if (bounded == *size) return picture;
  auto scaled = std::make_shared<PixelBuffer>(bounded, picture->opaque());
  return Compositor::scale(picture->view(), scaled->span()) ? scaled : nullptr;
}

}  // namespace

std::optional<Size> VipsImageCodec::measure(const std::string& path) {
  const auto source = PictureSource::open(path);
  if (!source) return std::nullopt;
  if (BmpDecoder::recognises(source->file())) {
    const auto size = BmpDecoder::measure(source->file());
    return size && withinLimits(*size) ? size : std::nullopt;
  }
  const auto header = readHeader(*source);
  return header ? std::optional(header->upright) : std::nullopt;
}

std::shared_ptr<PixelBuffer> VipsImageCodec::load(const std::string& path, int maxSide) {
  const auto source = PictureSource::open(path);
  if (!source || maxSide < 1) return nullptr;
  if (BmpDecoder::recognises(source->file())) return loadBmp(source->file(), maxSide);
  return loadVips(*source, maxSide);
}

std::shared_ptr<PixelBuffer> VipsImageCodec::load(std::span<const std::byte> file, int maxSide) {
  if (file.empty() || maxSide < 1) return nullptr;
  return loadVips(PictureSource(file), maxSide);
}

std::vector<std::byte> VipsImageCodec::encodePng(const PixelView& picture) {
  return PngEncoder::encode(picture);
}

std::vector<std::byte> VipsImageCodec::encodeJpeg(const PixelView& picture, int quality) {
  return JpegEncoder::encode(picture, quality);
}

}  // namespace lenslark
