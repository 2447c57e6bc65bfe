#include "base/cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>

#include <cstdint>
#endif

namespace qav {

#if defined(__x86_64__) || defined(__i386__)

namespace {

// The register state that the operating system saves, as XCR0 says it.
constexpr uint32_t kAvxState = 0x06;     // SSE and AVX
constexpr uint32_t kAvx512State = 0xE6;  // and the mask registers and the rest of the vector registers

uint32_t savedState() {
  uint32_t low, high;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return low;
}

constexpr bool has(uint32_t word, uint32_t bits) { return (word & bits) == bits; }

}  // namespace

CpuLevel detectCpuLevel() {
  uint32_t a, b, c, d;
  constexpr uint32_t kFma = 1u << 12, kOsSavesState = 1u << 27;
  if (!__get_cpuid(1, &a, &b, &c, &d) || !has(c, kFma | kOsSavesState)) return CpuLevel::Baseline;
  const uint32_t saved = savedState();

  constexpr uint32_t kAvx2 = 1u << 5;
  constexpr uint32_t kAvx512 = 1u << 16 | 1u << 17 | 1u << 30 | 1u << 31;  // F, DQ, BW, VL
  constexpr uint32_t kVnni = 1u << 11;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return CpuLevel::Baseline;
  if (has(saved, kAvx512State) && has(b, kAvx2 | kAvx512) && has(c, kVnni)) return CpuLevel::Avx512;
  if (has(saved, kAvxState) && has(b, kAvx2)) return CpuLevel::Avx2;
  return CpuLevel::Baseline;
}

#else

CpuLevel detectCpuLevel() { return CpuLevel::Baseline; }

#endif

const char *cpuLevelName(CpuLevel level) {
  switch (level) {
    case CpuLevel::Avx512: return "avx512";
    case CpuLevel::Avx2: return "avx2";
    default: return "baseline";
  }
}

}  // namespace qav
