// KernelsAvx2.h - the pixel arithmetic for processors with 256-bit integer vectors.
#pragma once

#include "Kernels.h"

/// The AVX2 kernels, or NULL where this processor or this build has none.
const RowKernels* kernelsAvx2(void);
