#include "base/cpu.h"

#include <gtest/gtest.h>

#include <string>

namespace qav {
namespace {

#if defined(__x86_64__) || defined(__i386__)
TEST(Cpu, AgreesWithTheCompilersRuntime) {
  const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  const bool avx512 = avx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
                      __builtin_cpu_supports("avx512vnni");
  EXPECT_EQ(detectCpuLevel(), avx512 ? CpuLevel::Avx512 : avx2 ? CpuLevel::Avx2 : CpuLevel::Baseline);
}
#else
TEST(Cpu, HasOneLevel) { EXPECT_EQ(detectCpuLevel(), CpuLevel::Baseline); }
#endif

TEST(Cpu, LevelsHaveNames) {
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Baseline)), "baseline");
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Avx2)), "avx2");
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Avx512)), "avx512");
}

}  // namespace
}  // namespace qav
