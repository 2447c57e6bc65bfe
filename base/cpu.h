// What the CPU can do. Kernels are compiled once per level from one body and give the same bits at every level.
#pragma once

namespace qav {

enum class CpuLevel : int {
  Baseline,  // what the architecture always has: SSE2 on x86-64, NEON on aarch64
  Avx2,      // with FMA
  Avx512,    // F, BW, DQ, VL and VNNI
};

inline constexpr CpuLevel kCpuLevels[] = {CpuLevel::Baseline, CpuLevel::Avx2, CpuLevel::Avx512};

// The highest level that CPU and operating system support. Costs a few microseconds on virtual machines: ask once per
// session and keep the answer there.
CpuLevel detectCpuLevel();

const char *cpuLevelName(CpuLevel level);

}  // namespace qav
