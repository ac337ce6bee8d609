#pragma once

#include <memory>

#include "graphics/PixelBuffer.h"

namespace lenslark {

/// The stored picture as its EXIF orientation (1 to 8) wants it; itself where that is 1 or none of
/// these. Null when it is null or could not be turned. **Fails** with std::bad_alloc.
std::shared_ptr<PixelBuffer> upright(std::shared_ptr<PixelBuffer> stored, int orientation);

}  // namespace lenslark
