#include "base/cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace qav {
namespace {

constexpr uint32_t kFma = 1u << 12, kOsSavesState = 1u << 27;
constexpr uint32_t kAvx2 = 1u << 5;
constexpr uint32_t kAvx512 = 1u << 16 | 1u << 17 | 1u << 30 | 1u << 31;  // F, DQ, BW, VL
constexpr uint32_t kVnni = 1u << 11;

// The register state that the operating system saves, as XCR0 says it.
constexpr uint32_t kAvxState = 0x06;     // SSE and AVX
constexpr uint32_t kAvx512State = 0xE6;  // and the mask registers and the rest of the vector registers

constexpr bool has(uint32_t word, uint32_t bits) { return (word & bits) == bits; }

}  // namespace

CpuLevel levelOf(const CpuFeatures &f) {
  if (!has(f.leaf1c, kFma | kOsSavesState) || !has(f.leaf7b, kAvx2) || !has(f.savedState, kAvxState))
    return CpuLevel::Baseline;
  return has(f.leaf7b, kAvx512) && has(f.leaf7c, kVnni) && has(f.savedState, kAvx512State) ? CpuLevel::Avx512
                                                                                           : CpuLevel::Avx2;
}

CpuLevel detectCpuLevel() {
  CpuFeatures features = {};
#if defined(__x86_64__) || defined(__i386__)
  // Leaves that the CPU has not leave the zeros as they are; without leaf 1's bit there is no instruction that reads XCR0.
  uint32_t a, b, d;
  __get_cpuid(1, &a, &b, &features.leaf1c, &d);
  __get_cpuid_count(7, 0, &a, &features.leaf7b, &features.leaf7c, &d);
  if (has(features.leaf1c, kOsSavesState)) __asm__("xgetbv" : "=a"(features.savedState), "=d"(d) : "c"(0));
#endif
  return levelOf(features);
}

const char *cpuLevelName(CpuLevel level) {
  switch (level) {
    case CpuLevel::Avx512: return "avx512";
    case CpuLevel::Avx2: return "avx2";
    default: return "baseline";
  }
}

}  // namespace qav
