// KernelsAvx512.h - the pixel arithmetic for processors that multiply and add 512-bit byte vectors.
#pragma once

#include "Kernels.h"

/// The kernels for AVX-512 with VBMI and VNNI, or NULL where this processor or this build has none.
const RowKernels* kernelsAvx512(void);
