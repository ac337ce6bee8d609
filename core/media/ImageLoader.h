#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "graphics/PixelBuffer.h"

/// Pictures from files, PDF pages included. **Threads**: any.
namespace lenslark::ImageLoader {

/// Upright, premultiplied, sRGB, the longer side at most `maxPixelSize` (a PDF page exactly that).
/// Nothing when the file is no picture that can be shown. **Fails** with Error where the codec
/// module itself is missing, and with std::system_error where a file that is there cannot be
/// opened.
std::shared_ptr<PixelBuffer> load(const std::filesystem::path& path, int maxPixelSize);

/// What `load` would give, without decoding.
std::optional<Size> measure(const std::filesystem::path& path, int maxPixelSize);

}  // namespace lenslark::ImageLoader
