#pragma once

#include <memory>

#include "codecs/image/PictureSource.h"
#include "graphics/PixelBuffer.h"

/// The short way for the photographs that people have most: a JPEG of three colours without a
/// profile. It is decoded at the smallest size that the codec offers at or above the one that is
/// wanted, and scaled from there.
namespace lenslark::JpegDecoder {

/// The picture upright, its longer side at most `maxSide`. `stored` is its size in the file,
/// `orientation` the EXIF value from 1 to 8. Nothing when anything about the file is unusual,
/// though it may be a picture still: the general way tells.
/// **Threads**: any.
std::shared_ptr<PixelBuffer> decode(const PictureSource& source, Size stored, int orientation,
                                    int maxSide);

}  // namespace lenslark::JpegDecoder
