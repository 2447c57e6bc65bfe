// Operations on lanes that compilers do not find in the loop that says the same: one overload for each vector of each CPU
// level. Only functions of that level's target may call them. The AVX-512 conversions are written with a full mask, because
// GCC 12 warns of the plain ones.
#pragma once

#include <cstdint>

#include "base/lanes.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qav {

// What all CPUs have, for the sake of the overloads.
NEB_INLINE void interleave(Lanes<int16_t, 8> &low, Lanes<int16_t, 8> &high, const Lanes<int16_t, 8> &a,
                           const Lanes<int16_t, 8> &b) {
  low = __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
  high = __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}

NEB_INLINE void transpose(Lanes<int32_t, 4> v[4]) {
  const Lanes<int32_t, 4> a = __builtin_shufflevector(v[0], v[1], 0, 4, 1, 5);
  const Lanes<int32_t, 4> b = __builtin_shufflevector(v[0], v[1], 2, 6, 3, 7);
  const Lanes<int32_t, 4> c = __builtin_shufflevector(v[2], v[3], 0, 4, 1, 5);
  const Lanes<int32_t, 4> d = __builtin_shufflevector(v[2], v[3], 2, 6, 3, 7);
  v[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5);
  v[1] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
  v[2] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
  v[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
}

#if defined(__x86_64__)

#define QAV_TARGET_AVX2 NEB_TARGET("avx2,fma")
#define QAV_TARGET_AVX512 NEB_TARGET("avx2,fma,avx512f,avx512bw,avx512dq,avx512vl,avx512vnni")

// sum[k] += a[2k] b[2k] + a[2k + 1] b[2k + 1]. Not all four may be -32768.
NEB_INLINE void addPairProducts(Lanes<int32_t, 4> &sum, const Lanes<int16_t, 8> &a, const Lanes<int16_t, 8> &b) {
  sum += Lanes<int32_t, 4>(_mm_madd_epi16(__m128i(a), __m128i(b)));
}
QAV_TARGET_AVX2 NEB_INLINE void addPairProducts(Lanes<int32_t, 8> &sum, const Lanes<int16_t, 16> &a,
                                                const Lanes<int16_t, 16> &b) {
  sum += Lanes<int32_t, 8>(_mm256_madd_epi16(__m256i(a), __m256i(b)));
}
QAV_TARGET_AVX512 NEB_INLINE void addPairProducts(Lanes<int32_t, 16> &sum, const Lanes<int16_t, 32> &a,
                                                  const Lanes<int16_t, 32> &b) {
  sum = Lanes<int32_t, 16>(_mm512_dpwssd_epi32(__m512i(sum), __m512i(a), __m512i(b)));
}

// The words of a and b in turn, by halves: in each 128 bits those of the lower half into `low`, those of the upper into
// `high`.
QAV_TARGET_AVX2 NEB_INLINE void interleave(Lanes<int16_t, 16> &low, Lanes<int16_t, 16> &high,
                                           const Lanes<int16_t, 16> &a, const Lanes<int16_t, 16> &b) {
  low = Lanes<int16_t, 16>(_mm256_unpacklo_epi16(__m256i(a), __m256i(b)));
  high = Lanes<int16_t, 16>(_mm256_unpackhi_epi16(__m256i(a), __m256i(b)));
}

// Rows become columns in each 128 bits.
QAV_TARGET_AVX2 NEB_INLINE void transpose(Lanes<int32_t, 8> v[4]) {
  const __m256i a = _mm256_unpacklo_epi32(__m256i(v[0]), __m256i(v[1]));
  const __m256i b = _mm256_unpackhi_epi32(__m256i(v[0]), __m256i(v[1]));
  const __m256i c = _mm256_unpacklo_epi32(__m256i(v[2]), __m256i(v[3]));
  const __m256i d = _mm256_unpackhi_epi32(__m256i(v[2]), __m256i(v[3]));
  v[0] = Lanes<int32_t, 8>(_mm256_unpacklo_epi64(a, c));
  v[1] = Lanes<int32_t, 8>(_mm256_unpackhi_epi64(a, c));
  v[2] = Lanes<int32_t, 8>(_mm256_unpacklo_epi64(b, d));
  v[3] = Lanes<int32_t, 8>(_mm256_unpackhi_epi64(b, d));
}

NEB_INLINE void loadAsDoubles(Lanes<double, 2> &v, const int32_t *p) { v = _mm_cvtepi32_pd(_mm_loadu_si64(p)); }
QAV_TARGET_AVX2 NEB_INLINE void loadAsDoubles(Lanes<double, 4> &v, const int32_t *p) {
  v = _mm256_cvtepi32_pd(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}
QAV_TARGET_AVX512 NEB_INLINE void loadAsDoubles(Lanes<double, 8> &v, const int32_t *p) {
  v = _mm512_maskz_cvtepi32_pd(0xFF, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)));
}

NEB_INLINE void storeAsFloats(float *p, const Lanes<double, 2> &v) {
  const Lanes<float, 4> floats = _mm_cvtpd_ps(v);
  std::memcpy(p, &floats, 2 * sizeof(float));
}
QAV_TARGET_AVX2 NEB_INLINE void storeAsFloats(float *p, const Lanes<double, 4> &v) {
  _mm_storeu_ps(p, _mm256_cvtpd_ps(v));
}
QAV_TARGET_AVX512 NEB_INLINE void storeAsFloats(float *p, const Lanes<double, 8> &v) {
  _mm256_storeu_ps(p, _mm512_maskz_cvtpd_ps(0xFF, v));
}

// Truncates; every value must be that of an int32_t.
NEB_INLINE void toInts(Lanes<int32_t, 4> &ints, const Lanes<float, 4> &v) {
  ints = Lanes<int32_t, 4>(_mm_cvttps_epi32(v));
}
QAV_TARGET_AVX2 NEB_INLINE void toInts(Lanes<int32_t, 8> &ints, const Lanes<float, 8> &v) {
  ints = Lanes<int32_t, 8>(_mm256_cvttps_epi32(v));
}

// x * r + 1, rounded once. This is the only place that asks for the instruction.
QAV_TARGET_AVX2 NEB_INLINE void fusedProductPlusOne(Lanes<float, 4> &v, const Lanes<float, 4> &x,
                                                    const Lanes<float, 4> &r) {
  v = _mm_fmadd_ps(x, r, _mm_set1_ps(1.0f));
}
QAV_TARGET_AVX2 NEB_INLINE void fusedProductPlusOne(Lanes<float, 8> &v, const Lanes<float, 8> &x,
                                                    const Lanes<float, 8> &r) {
  v = _mm256_fmadd_ps(x, r, _mm256_set1_ps(1.0f));
}

#else

template <typename Ints, typename Shorts>
NEB_INLINE void addPairProducts(Ints &sum, const Shorts &a, const Shorts &b) {
  for (size_t k = 0; k < sizeof(Ints) / sizeof(int32_t); ++k)
    sum[k] += int32_t(a[2 * k]) * b[2 * k] + int32_t(a[2 * k + 1]) * b[2 * k + 1];
}

template <typename Doubles>
NEB_INLINE void loadAsDoubles(Doubles &v, const int32_t *p) {
  for (size_t k = 0; k < sizeof(Doubles) / sizeof(double); ++k) v[k] = double(p[k]);
}

template <typename Doubles>
NEB_INLINE void storeAsFloats(float *p, const Doubles &v) {
  for (size_t k = 0; k < sizeof(Doubles) / sizeof(double); ++k) p[k] = float(v[k]);
}

#endif

}  // namespace qav
