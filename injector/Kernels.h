// Kernels.h - the pixel arithmetic, one row at a time.
//
// Pixels come as B, G, R, A bytes. Every width is a number of pixels. The vector versions work on
// 32 pixels at a time, so an output width is a multiple of 32: every offered frame size is.
// Threads: any; kernels() is settled by the constructor. Owns: nothing.
#pragma once

#include <stdint.h>

/// How many pixels the vector versions take at once.
enum { kernelStep = 32 };

/// An RGB -> Y'CbCr matrix for limited range, in 1/256.
typedef struct ColourMatrix {
  uint8_t lumaB, lumaG, lumaR;
  int8_t cbB, cbG, cbR;
  int8_t crB, crG, crR;
} ColourMatrix;

extern const ColourMatrix matrixBt601;
extern const ColourMatrix matrixBt709;

/// Where an output pixel comes from: two neighbours, weighted in 1/128.
typedef struct Tap {
  int32_t first;        ///< Byte offset of the left neighbour; the right one is 4 bytes on.
  uint8_t left, right;  ///< They add up to 128.
} Tap;

typedef struct RowKernels {
  /// One luma byte a pixel.
  void (*luma)(const uint8_t* bgra, uint8_t* y, int width, const ColourMatrix* matrix);
  /// One Cb and one Cr byte for each two by two pixels. `lower` may equal `upper`.
  void (*chroma)(const uint8_t* upper, const uint8_t* lower, uint8_t* cb, uint8_t* cr, int width,
                 const ColourMatrix* matrix);
  /// R, G, B bytes.
  void (*rgb)(const uint8_t* bgra, uint8_t* rgb, int width);
  /// Mixes two rows: (128 - weight) parts of `upper` and `weight` (0 to 127) of `lower`.
  void (*mix)(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int width, int weight);
  /// `width` output pixels by their taps.
  void (*resample)(const uint8_t* row, uint8_t* out, int width, const Tap* taps);
  /// The mean of each two by two pixels; `width` is that of the output.
  void (*halve)(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int width);
} RowKernels;

/// The portable versions.
extern const RowKernels kernelsPortable;

/// The best versions for this processor, or the best that LENSLARK_KERNELS=portable or =avx2
/// allows.
const RowKernels* kernels(void);

/// Looks at the processor once. Called by the constructor.
void kernelsSelect(void);
