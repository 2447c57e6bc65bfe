// Stages under the stopwatch. Each figure is a time in nanoseconds and the same in F: the time of one FFTW
// single-precision real-to-complex transform of 1024 points, measured in turn with the stage, so that figures from
// different machines compare.
#pragma once

#include <functional>
#include <string>

#include "base/cpu.h"

namespace qav::bench {

using Run = std::function<void()>;

// Registers a stage; call it from a static initialiser through QAV_BENCH. `setUp` is called once per measurement and
// returns the function that is timed; `runs` is how many times that function performs the stage in one call.
bool addStage(const std::string &name, std::function<Run()> setUp, int runs = 1);

// Registers a stage at every level this CPU has; `setUp` is given the level.
bool addStageAtEveryLevel(const std::string &name, const std::function<Run(CpuLevel)> &setUp, int runs = 1);

// Keeps the compiler from dropping what computed `*p`.
inline void keep(const void *p) { __asm__ volatile("" : : "g"(p) : "memory"); }

}  // namespace qav::bench

#define QAV_BENCH_NAME_(line) qavBench##line
#define QAV_BENCH_NAME(line) QAV_BENCH_NAME_(line)
#define QAV_BENCH [[maybe_unused]] static const bool QAV_BENCH_NAME(__LINE__)
