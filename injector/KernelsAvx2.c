#include "KernelsAvx2.h"

#include <stddef.h>

#if defined(__x86_64__)

#include <immintrin.h>
#include <string.h>

#define AVX2 __attribute__((target("avx2")))

AVX2 static inline __m256i load(const uint8_t* from) {
  return _mm256_loadu_si256((const __m256i*)(const void*)from);
}

AVX2 static inline void store(uint8_t* into, __m256i value) {
  _mm256_storeu_si256((__m256i*)(void*)into, value);
}

AVX2 static inline __m256i quad(int b, int g, int r) {
  return _mm256_set1_epi32(
      (int)((uint32_t)(uint8_t)b | (uint32_t)(uint8_t)g << 8 | (uint32_t)(uint8_t)r << 16));
}

// Packing in 128-bit halves leaves the 4-byte groups of 32 results in this order.
AVX2 static inline __m256i inOrder(__m256i packed) {
  return _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

AVX2 static void luma(const uint8_t* bgra, uint8_t* y, int width, const ColourMatrix* matrix) {
  // The multiplication wants one signed side: pixels are moved to -128..127 and the sum back.
  const __m256i weights = quad(matrix->lumaB, matrix->lumaG, matrix->lumaR);
  const int shift = 128 * (matrix->lumaB + matrix->lumaG + matrix->lumaR);
  const __m256i bias = _mm256_set1_epi16((short)(shift + 16 * 256 + 128));
  const __m256i sign = _mm256_set1_epi8((char)0x80);
  for (int x = 0; x < width; x += 32) {
    __m256i sums[4];
    for (int i = 0; i < 4; ++i) {
      sums[i] = _mm256_maddubs_epi16(weights, _mm256_xor_si256(load(bgra + 4 * x + 32 * i), sign));
    }
    __m256i low = _mm256_add_epi16(_mm256_hadd_epi16(sums[0], sums[1]), bias);
    __m256i high = _mm256_add_epi16(_mm256_hadd_epi16(sums[2], sums[3]), bias);
    low = _mm256_srli_epi16(low, 8);
    high = _mm256_srli_epi16(high, 8);
    store(y + x, inOrder(_mm256_packus_epi16(low, high)));
  }
}

// The means of two by two pixels from eight pixels of each row: eight of sixteen come out.
AVX2 static inline __m256i means(const uint8_t* upper, const uint8_t* lower) {
  const __m256i first = _mm256_avg_epu8(load(upper), load(lower));
  const __m256i second = _mm256_avg_epu8(load(upper + 32), load(lower + 32));
  const __m256 one = _mm256_castsi256_ps(first);
  const __m256 two = _mm256_castsi256_ps(second);
  const __m256i even = _mm256_castps_si256(_mm256_shuffle_ps(one, two, 0x88));
  const __m256i odd = _mm256_castps_si256(_mm256_shuffle_ps(one, two, 0xdd));
  // Lanes hold pixels 0 1 4 5 | 2 3 6 7.
  return _mm256_permute4x64_epi64(_mm256_avg_epu8(even, odd), 0xd8);
}

AVX2 static inline __m128i weigh(__m256i low, __m256i high, __m256i weights, __m256i bias) {
  __m256i sum =
      _mm256_hadd_epi16(_mm256_maddubs_epi16(low, weights), _mm256_maddubs_epi16(high, weights));
  sum = _mm256_srli_epi16(_mm256_add_epi16(sum, bias), 8);
  // 4-byte groups: low 0-3, high 0-3 in the first half, low 4-7, high 4-7 in the second.
  const __m256i bytes = _mm256_packus_epi16(sum, sum);
  const __m256i ordered =
      _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 0, 4, 1, 5));
  return _mm256_castsi256_si128(ordered);
}

AVX2 static void chroma(const uint8_t* upper, const uint8_t* lower, uint8_t* cb, uint8_t* cr,
                        int width, const ColourMatrix* matrix) {
  const __m256i cbWeights = quad(matrix->cbB, matrix->cbG, matrix->cbR);
  const __m256i crWeights = quad(matrix->crB, matrix->crG, matrix->crR);
  const __m256i bias = _mm256_set1_epi16((short)(128 * 256 + 128));
  for (int x = 0; x < width; x += 32) {
    const __m256i low = means(upper + 4 * x, lower + 4 * x);
    const __m256i high = means(upper + 4 * x + 64, lower + 4 * x + 64);
    _mm_storeu_si128((__m128i*)(void*)(cb + x / 2), weigh(low, high, cbWeights, bias));
    _mm_storeu_si128((__m128i*)(void*)(cr + x / 2), weigh(low, high, crWeights, bias));
  }
}

AVX2 static void rgb(const uint8_t* bgra, uint8_t* out, int width) {
  const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2,
                                         1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  const __m256i tight = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  // A store writes 32 bytes of which 24 count; the last eight pixels must not write past the row.
  int x = 0;
  for (; x + 16 <= width; x += 8) {
    store(out + 3 * x,
          _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(load(bgra + 4 * x), order), tight));
  }
  uint8_t last[32];
  for (; x < width; x += 8) {
    store(last, _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(load(bgra + 4 * x), order), tight));
    memcpy(out + 3 * x, last, 24);
  }
}

AVX2 static void mix(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int width,
                     int weight) {
  const __m256i weights = _mm256_set1_epi16((short)((128 - weight) | weight << 8));
  const __m256i sign = _mm256_set1_epi8((char)0x80);
  const __m256i half = _mm256_set1_epi16(64);
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    const __m256i a = _mm256_xor_si256(load(upper + 4 * x), sign);
    const __m256i b = _mm256_xor_si256(load(lower + 4 * x), sign);
    __m256i low = _mm256_maddubs_epi16(weights, _mm256_unpacklo_epi8(a, b));
    __m256i high = _mm256_maddubs_epi16(weights, _mm256_unpackhi_epi8(a, b));
    low = _mm256_srai_epi16(_mm256_add_epi16(low, half), 7);
    high = _mm256_srai_epi16(_mm256_add_epi16(high, half), 7);
    store(out + 4 * x, _mm256_xor_si256(_mm256_packs_epi16(low, high), sign));
  }
  if (x < width) kernelsPortable.mix(upper + 4 * x, lower + 4 * x, out + 4 * x, width - x, weight);
}

AVX2 static void resample(const uint8_t* row, uint8_t* out, int width, const Tap* taps) {
  const __m256i pairs = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15, 0, 4,
                                         1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
  const __m256i sign = _mm256_set1_epi8((char)0x80);
  const __m256i half = _mm256_set1_epi16(64);
  // Each tap's weights, from the fifth and sixth byte of its eight, four times over.
  const __m256i spread = _mm256_setr_epi8(4, 5, 4, 5, 4, 5, 4, 5, 12, 13, 12, 13, 12, 13, 12, 13, 4,
                                          5, 4, 5, 4, 5, 4, 5, 12, 13, 12, 13, 12, 13, 12, 13);
  int x = 0;
  for (; x + 4 <= width; x += 4) {
    long long pixels[4];
    for (int i = 0; i < 4; ++i) memcpy(&pixels[i], row + taps[x + i].first, 8);
    const __m256i neighbours = _mm256_xor_si256(
        _mm256_shuffle_epi8(_mm256_setr_epi64x(pixels[0], pixels[1], pixels[2], pixels[3]), pairs),
        sign);
    const __m256i weights = _mm256_shuffle_epi8(load((const uint8_t*)(taps + x)), spread);
    __m256i sum = _mm256_maddubs_epi16(weights, neighbours);
    sum = _mm256_srai_epi16(_mm256_add_epi16(sum, half), 7);
    sum = _mm256_permute4x64_epi64(_mm256_packs_epi16(sum, sum), 0xd8);
    _mm_storeu_si128((__m128i*)(void*)(out + 4 * x),
                     _mm256_castsi256_si128(_mm256_xor_si256(sum, sign)));
  }
  if (x < width) kernelsPortable.resample(row, out + 4 * x, width - x, taps + x);
}

AVX2 static void halve(const uint8_t* upper, const uint8_t* lower, uint8_t* out, int width) {
  int x = 0;
  for (; x + 8 <= width; x += 8) store(out + 4 * x, means(upper + 8 * x, lower + 8 * x));
  if (x < width) kernelsPortable.halve(upper + 8 * x, lower + 8 * x, out + 4 * x, width - x);
}

static const RowKernels avx2 = {luma, chroma, rgb, mix, resample, halve};

_Static_assert(offsetof(Tap, left) == 4 && sizeof(Tap) == 8, "resample() reads taps as vectors");

const RowKernels* kernelsAvx2(void) {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") ? &avx2 : NULL;
}

#else

const RowKernels* kernelsAvx2(void) { return NULL; }

#endif
