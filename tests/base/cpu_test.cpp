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

// A server of 2019 has all that is asked for. Without any one of it, it is of a level below.
TEST(Cpu, EveryFeatureCounts) {
  constexpr CpuFeatures kAll = {0x7FFEFBFF, 0xD19F47AB, 0x00000A2C, 0xE7};
  EXPECT_EQ(levelOf(kAll), CpuLevel::Avx512);
  EXPECT_EQ(levelOf({0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}), CpuLevel::Avx512);
  EXPECT_EQ(levelOf({}), CpuLevel::Baseline);

  struct Case {
    const char *missing;
    uint32_t CpuFeatures::*word;
    int bit;
    CpuLevel level;
  };
  constexpr auto k1c = &CpuFeatures::leaf1c, k7b = &CpuFeatures::leaf7b, k7c = &CpuFeatures::leaf7c,
                 kState = &CpuFeatures::savedState;
  for (const Case &c : {Case{"FMA", k1c, 12, CpuLevel::Baseline},
                        {"OSXSAVE", k1c, 27, CpuLevel::Baseline},
                        {"AVX2", k7b, 5, CpuLevel::Baseline},
                        {"SSE state", kState, 1, CpuLevel::Baseline},
                        {"AVX state", kState, 2, CpuLevel::Baseline},
                        {"AVX512F", k7b, 16, CpuLevel::Avx2},
                        {"AVX512DQ", k7b, 17, CpuLevel::Avx2},
                        {"AVX512BW", k7b, 30, CpuLevel::Avx2},
                        {"AVX512VL", k7b, 31, CpuLevel::Avx2},
                        {"AVX512VNNI", k7c, 11, CpuLevel::Avx2},
                        {"mask registers", kState, 5, CpuLevel::Avx2},
                        {"upper halves", kState, 6, CpuLevel::Avx2},
                        {"upper registers", kState, 7, CpuLevel::Avx2}}) {
    CpuFeatures features = kAll;
    features.*c.word &= ~(1u << c.bit);
    EXPECT_EQ(levelOf(features), c.level) << "without " << c.missing;

    // Nothing else matters.
    CpuFeatures others = {0x08001000, 0xC0030020, 0x00000800, 0xE6};
    EXPECT_EQ(levelOf(others), CpuLevel::Avx512);
    others.*c.word &= ~(1u << c.bit);
    EXPECT_EQ(levelOf(others), c.level) << "without " << c.missing << " and all that is not asked for";
  }
}

TEST(Cpu, LevelsHaveNames) {
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Baseline)), "baseline");
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Avx2)), "avx2");
  EXPECT_EQ(std::string(cpuLevelName(CpuLevel::Avx512)), "avx512");
}

}  // namespace
}  // namespace qav
