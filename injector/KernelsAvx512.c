#include "KernelsAvx512.h"

#include <stdbool.h>
#include <stddef.h>

#include "KernelsAvx2.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vnni")))

enum { step = 64 };

// What has no version here, and what is left of a row.
static const RowKernels* narrower;

AVX512 static inline __m512i load(const uint8_t* from) { return _mm512_loadu_si512(from); }

AVX512 static inline __m512i quad(int b, int g, int r) {
  return _mm512_set1_epi32(
      (int)((uint32_t)(uint8_t)b | (uint32_t)(uint8_t)g << 8 | (uint32_t)(uint8_t)r << 16));
}

// Divides 32 sums by 256: what is left of each is its second byte.
AVX512 static inline __m256i quotients(__m512i first, __m512i second) {
  static const uint8_t places[64] = {1,  5,  9,  13,  17,  21,  25,  29,  33,  37, 41,
                                     45, 49, 53, 57,  61,  65,  69,  73,  77,  81, 85,
                                     89, 93, 97, 101, 105, 109, 113, 117, 121, 125};
  return _mm512_castsi512_si256(_mm512_permutex2var_epi8(first, load(places), second));
}

AVX512 static void luma(const uint8_t* bgra, uint8_t* y, int width, const ColourMatrix* matrix) {
  // The multiplication wants one signed side: pixels are moved to -128..127 and the sum back.
  const __m512i weights = quad(matrix->lumaB, matrix->lumaG, matrix->lumaR);
  const int shift = 128 * (matrix->lumaB + matrix->lumaG + matrix->lumaR);
  const __m512i bias = _mm512_set1_epi32(shift + 16 * 256 + 128);
  const __m512i sign = _mm512_set1_epi8((char)0x80);
  int x = 0;
  for (; x + step <= width; x += step) {
    __m512i sums[4];
    for (int i = 0; i < 4; ++i) {
      const __m512i pixels = _mm512_xor_si512(load(bgra + (ptrdiff_t)4 * x + 64 * i), sign);
      sums[i] = _mm512_dpbusd_epi32(bias, weights, pixels);
    }
    const __m512i low = _mm512_castsi256_si512(quotients(sums[0], sums[1]));
    _mm512_storeu_si512(y + x, _mm512_inserti64x4(low, quotients(sums[2], sums[3]), 1));
  }
  if (x < width) narrower->luma(bgra + (ptrdiff_t)4 * x, y + x, width - x, matrix);
}

// The means of two by two pixels from 32 pixels of each row.
AVX512 static inline __m512i means(const uint8_t* upper, const uint8_t* lower) {
  const __m512i evens =
      _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const __m512i odds = _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
  const __m512i first = _mm512_avg_epu8(load(upper), load(lower));
  const __m512i second = _mm512_avg_epu8(load(upper + 64), load(lower + 64));
  return _mm512_avg_epu8(_mm512_permutex2var_epi32(first, evens, second),
                         _mm512_permutex2var_epi32(first, odds, second));
}

AVX512 static inline void weigh(uint8_t* out, __m512i low, __m512i high, __m512i weights) {
  const __m512i bias = _mm512_set1_epi32(128 * 256 + 128);
  _mm256_storeu_si256((__m256i*)(void*)out, quotients(_mm512_dpbusd_epi32(bias, low, weights),
                                                      _mm512_dpbusd_epi32(bias, high, weights)));
}

AVX512 static void chroma(const uint8_t* upper, const uint8_t* lower, uint8_t* cb, uint8_t* cr,
                          int width, const ColourMatrix* matrix) {
  const __m512i cbWeights = quad(matrix->cbB, matrix->cbG, matrix->cbR);
  const __m512i crWeights = quad(matrix->crB, matrix->crG, matrix->crR);
  int x = 0;
  for (; x + step <= width; x += step) {
    const ptrdiff_t at = (ptrdiff_t)4 * x;
    const __m512i low = means(upper + at, lower + at);
    const __m512i high = means(upper + at + 128, lower + at + 128);
    weigh(cb + x / 2, low, high, cbWeights);
    weigh(cr + x / 2, low, high, crWeights);
  }
  const ptrdiff_t at = (ptrdiff_t)4 * x;
  if (x < width)
    narrower->chroma(upper + at, lower + at, cb + x / 2, cr + x / 2, width - x, matrix);
}

static bool isSupported(void) {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
         __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vnni");
}

const RowKernels* kernelsAvx512(void) {
  static RowKernels avx512;
  narrower = kernelsAvx2();
  if (!narrower || !isSupported()) return NULL;
  avx512 = *narrower;
  avx512.luma = luma;
  avx512.chroma = chroma;
  return &avx512;
}

#else

const RowKernels* kernelsAvx512(void) { return NULL; }

#endif
