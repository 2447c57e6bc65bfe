// qav_bench [--json=FILE] [Google Benchmark's own options, such as --benchmark_filter=REGEX]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/bench.h"
#include "bench/fftw_unit.h"
#include "bench/report.h"
#include "bench/statistics.h"

namespace qav::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepetitions = 41;    // pairs of stage and unit; the medians of them are the figures
constexpr double kBlockNs = 150e3;  // time of one such block of each
constexpr int kUnitTransforms = 100;

double timeCalls(const Run &run, int calls) {
  const auto start = Clock::now();
  for (int i = 0; i < calls; ++i) run();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

void measureStage(benchmark::State &state, const std::string &name, const std::function<Run()> &setUp, int runs) {
  const Run run = setUp();
  int calls = 1;
  while (timeCalls(run, calls) < kBlockNs && calls < 1 << 24) calls *= 2;

  std::vector<double> stageNs, unitNs, ratios;
  for (auto _ : state) {
    const double f = unit().measure(kUnitTransforms);
    const double ns = timeCalls(run, calls) / calls / runs;
    const double fAfter = unit().measure(kUnitTransforms);
    state.SetIterationTime(ns * 1e-9);
    stageNs.push_back(ns);
    unitNs.push_back(std::min(f, fAfter));
    ratios.push_back(ns / unitNs.back());
  }
  const Figure figure = {name, median(stageNs), median(ratios), median(unitNs)};
  state.counters["ns"] = figure.ns;
  state.counters["F"] = figure.f;
  state.counters["F_ns"] = figure.unitNs;
  addFigure(figure);
}

}  // namespace

bool addStage(const std::string &name, std::function<Run()> setUp, int runs) {
  benchmark::RegisterBenchmark(name.c_str(), [name, setUp = std::move(setUp), runs](
                                                 benchmark::State &state) { measureStage(state, name, setUp, runs); })
      ->UseManualTime()
      ->Iterations(kRepetitions)
      ->Unit(benchmark::kNanosecond);
  return true;
}

bool addStageAtEveryLevel(const std::string &name, const std::function<Run(CpuLevel)> &setUp, int runs) {
  for (const CpuLevel level : kCpuLevels)
    if (level <= detectCpuLevel())
      addStage(
          figureName(name, level), [setUp, level] { return setUp(level); }, runs);
  return true;
}

}  // namespace qav::bench

int main(int argc, char **argv) {
  const char *jsonPath = nullptr;
  std::vector<char *> others;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--json=", 7) == 0)
      jsonPath = argv[i] + 7;
    else
      others.push_back(argv[i]);
  }
  int count = int(others.size());
  benchmark::Initialize(&count, others.data());
  if (benchmark::ReportUnrecognizedArguments(count, others.data())) return 1;
  benchmark::RunSpecifiedBenchmarks();
  if (jsonPath != nullptr && !qav::bench::writeReport(jsonPath)) {
    std::fprintf(stderr, "qav_bench: %s: cannot be written\n", jsonPath);
    return 2;
  }
  return 0;
}
