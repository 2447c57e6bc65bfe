// How wide the CPU's vectors are. What is worth it is compiled for each level from one body, with the same result.
#pragma once

#include <cstddef>

#if defined(__GNUC__)
#define QAV_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define QAV_ALWAYS_INLINE inline
#endif

#if defined(__GNUC__) && defined(__x86_64__)
#define QAV_VECTOR_LEVELS 1
#define QAV_FOR_AVX2 __attribute__((target("avx2")))
#define QAV_FOR_AVX512 __attribute__((target("avx2,avx512f,avx512bw,avx512dq,avx512vl")))
#endif

namespace qav::tool {

template <typename T, size_t kWidth>
struct VectorOf {
  typedef T Type __attribute__((vector_size(kWidth * sizeof(T))));
};

enum class VectorLevel { baseline, avx2, avx512 };

// The widest that this CPU has.
inline VectorLevel widestVectors() {
#ifdef QAV_VECTOR_LEVELS
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl"))
    return VectorLevel::avx512;
  if (__builtin_cpu_supports("avx2")) return VectorLevel::avx2;
#endif
  return VectorLevel::baseline;
}

}  // namespace qav::tool
