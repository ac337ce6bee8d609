#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "graphics/PixelBuffer.h"

namespace lenslark {

/// Decodes and encodes still pictures. **Threads**: any. Found through `codecs/Modules.h`.
class ImageCodec {
 public:
  virtual ~ImageCodec() = default;

  /// The upright size from the file's header alone. Nothing when it is no picture that can be
  /// shown, or one beyond the limits of `load`.
  virtual std::optional<Size> measure(const std::string& path) = 0;

  /// Decodes the first picture of a file: upright, in sRGB, premultiplied, its longer side at most
  /// `maxSide`, never enlarged. `path` must be a regular file, which is opened once. Never touches
  /// another file or the network. Nothing when it cannot be decoded or is larger than the bounds
  /// on a picture's pixels, which are checked before anything is decoded.
  virtual std::shared_ptr<PixelBuffer> load(const std::string& path, int maxSide) = 0;

  /// The same for a picture in memory (a rendered PDF page).
  virtual std::shared_ptr<PixelBuffer> load(std::span<const std::byte> file, int maxSide) = 0;

  /// PNG, 8 bit, straight alpha, tagged sRGB. **Fails** with Error.
  virtual std::vector<std::byte> encodePng(const PixelView& picture) = 0;

  /// JPEG over black. **Fails** with Error.
  virtual std::vector<std::byte> encodeJpeg(const PixelView& picture, int quality) = 0;
};

}  // namespace lenslark
