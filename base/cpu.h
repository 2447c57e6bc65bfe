// What the CPU can do. Kernels are compiled once per level from one body and give the same bits at every level.
#pragma once

#include <cstdint>

namespace qav {

enum class CpuLevel : int {
  Baseline,  // what the architecture always has: SSE2 on x86-64, NEON on aarch64
  Avx2,      // with FMA
  Avx512,    // F, BW, DQ, VL and VNNI
};

inline constexpr CpuLevel kCpuLevels[] = {CpuLevel::Baseline, CpuLevel::Avx2, CpuLevel::Avx512};

// What an x86 CPU says of itself, and what its operating system does for it.
struct CpuFeatures {
  uint32_t leaf1c;  // register ECX of CPUID leaf 1
  uint32_t leaf7b;  // EBX and ECX of leaf 7; 0 where there is none
  uint32_t leaf7c;
  uint32_t savedState;  // the low half of XCR0; counts only where leaf 1 says that there is one
};

CpuLevel levelOf(const CpuFeatures &features);

// The highest level that CPU and operating system support. Costs a few microseconds on virtual machines: ask once per
// session and keep the answer there.
CpuLevel detectCpuLevel();

const char *cpuLevelName(CpuLevel level);

}  // namespace qav
