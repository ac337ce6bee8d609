#include "Kernels.h"

#include <stdlib.h>
#include <string.h>

#include "KernelsAvx2.h"
#include "KernelsAvx512.h"

// Rows add up to 220/256 (luma) and 0 (chroma), so that grey stays grey.
const ColourMatrix matrixBt601 = {25, 129, 66, 112, -74, -38, -18, -94, 112};
const ColourMatrix matrixBt709 = {16, 157, 47, 112, -86, -26, -10, -102, 112};

static const RowKernels* selected = &kernelsPortable;

static uint8_t asByte(int value) { return (uint8_t)value; }

static void luma(const uint8_t* restrict bgra, uint8_t* restrict y, int width,
                 const ColourMatrix* matrix) {
  const int b = matrix->lumaB;
  const int g = matrix->lumaG;
  const int r = matrix->lumaR;
  for (int x = 0; x < width; ++x) {
    y[x] =
        asByte((b * bgra[4 * x] + g * bgra[4 * x + 1] + r * bgra[4 * x + 2] + 16 * 256 + 128) >> 8);
  }
}

static int mean4(const uint8_t* upper, const uint8_t* lower) {
  return (upper[0] + upper[4] + lower[0] + lower[4] + 2) >> 2;
}

static void chroma(const uint8_t* upper, const uint8_t* lower, uint8_t* restrict cb,
                   uint8_t* restrict cr, int width, const ColourMatrix* matrix) {
  for (int x = 0; x < width / 2; ++x) {
    const int b = mean4(upper + 8 * x, lower + 8 * x);
    const int g = mean4(upper + 8 * x + 1, lower + 8 * x + 1);
    const int r = mean4(upper + 8 * x + 2, lower + 8 * x + 2);
    const int middle = 128 * 256 + 128;
    cb[x] = asByte((matrix->cbB * b + matrix->cbG * g + matrix->cbR * r + middle) >> 8);
    cr[x] = asByte((matrix->crB * b + matrix->crG * g + matrix->crR * r + middle) >> 8);
  }
}

static void rgb(const uint8_t* restrict bgra, uint8_t* restrict out, int width) {
  for (int x = 0; x < width; ++x) {
    out[3 * x] = bgra[4 * x + 2];
    out[3 * x + 1] = bgra[4 * x + 1];
    out[3 * x + 2] = bgra[4 * x];
  }
}

static void mix(const uint8_t* restrict upper, const uint8_t* restrict lower, uint8_t* restrict out,
                int width, int weight) {
  for (int i = 0; i < 4 * width; ++i) {
    out[i] = asByte((upper[i] * (128 - weight) + lower[i] * weight + 64) >> 7);
  }
}

static void resample(const uint8_t* restrict row, uint8_t* restrict out, int width,
                     const Tap* restrict taps) {
  for (int x = 0; x < width; ++x) {
    const uint8_t* pixel = row + taps[x].first;
    for (int channel = 0; channel < 4; ++channel) {
      out[4 * x + channel] =
          asByte((pixel[channel] * taps[x].left + pixel[4 + channel] * taps[x].right + 64) >> 7);
    }
  }
}

static void halve(const uint8_t* restrict upper, const uint8_t* restrict lower,
                  uint8_t* restrict out, int width) {
  for (int x = 0; x < width; ++x) {
    for (int channel = 0; channel < 4; ++channel) {
      out[4 * x + channel] = asByte(mean4(upper + 8 * x + channel, lower + 8 * x + channel));
    }
  }
}

const RowKernels kernelsPortable = {luma, chroma, rgb, mix, resample, halve};

const RowKernels* kernels(void) { return selected; }

void kernelsSelect(void) {
  const char* wanted = getenv("LENSLARK_KERNELS");
  if (wanted && strcmp(wanted, "portable") == 0) return;
  const RowKernels* best = wanted && strcmp(wanted, "avx2") == 0 ? NULL : kernelsAvx512();
  if (!best) best = kernelsAvx2();
  if (best) selected = best;
}
