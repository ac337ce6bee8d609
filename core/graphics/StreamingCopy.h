#pragma once

#include "graphics/PixelView.h"

namespace lenslark {

/// As `Compositor::copy`, but past the caches: memory is not read before it is written, and what
/// else lies in the caches stays there. Worth it where more is written than they hold before
/// anybody looks at it. Visible to other processors when it returns, in order with what follows.
/// Source: Intel 64 and IA-32 Architectures Optimization Reference Manual, on non-temporal stores.
void streamingCopy(const PixelView& source, const PixelSpan& target) noexcept;

}  // namespace lenslark
