// qav_bench [--json=FILE] [Google Benchmark's own options, such as --benchmark_filter=REGEX]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/bench.h"
#include "bench/fftw_unit.h"

namespace qav::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRepetitions = 41;    // pairs of stage and unit; the medians of them are the figures
constexpr double kBlockNs = 150e3;  // time of one such block of each
constexpr int kUnitTransforms = 100;

const FftwUnit &unit() {
  static const FftwUnit instance;
  return instance;
}

double timeCalls(const Run &run, int calls) {
  const auto start = Clock::now();
  for (int i = 0; i < calls; ++i) run();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Figure {
  std::string name;
  std::string variant;
  double ns;
  double f;
  double unitNs;
};

std::vector<Figure> &figures() {
  static std::vector<Figure> list;
  return list;
}

void measureStage(benchmark::State &state, const std::string &name, CpuLevel level, const std::function<Run()> &setUp,
                  int runs) {
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
  const Figure figure = {name, cpuLevelName(level), median(stageNs), median(ratios), median(unitNs)};
  state.counters["ns"] = figure.ns;
  state.counters["F"] = figure.f;
  state.counters["F_ns"] = figure.unitNs;
  figures().push_back(figure);
}

std::string cpuModel() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown";
}

double rounded(double value, double perUnit) { return std::round(value * perUnit) / perUnit; }

bool writeJson(const char *path) {
  nlohmann::ordered_json report;
  std::vector<double> units;
  for (const Figure &figure : figures()) units.push_back(figure.unitNs);
  report["cpu"] = cpuModel();
  report["variant"] = cpuLevelName(detectCpuLevel());
  report["F_ns"] = units.empty() ? 0.0 : rounded(median(units), 10.0);
  report["results"] = nlohmann::ordered_json::array();
  for (const Figure &figure : figures())
    report["results"].push_back({{"name", figure.name},
                                 {"variant", figure.variant},
                                 {"ns", rounded(figure.ns, 10.0)},
                                 {"F", rounded(figure.f, 1000.0)}});
  std::ofstream out(path);
  out << report.dump(2) << '\n';
  return bool(out.flush());
}

}  // namespace

bool addStage(const std::string &name, CpuLevel level, std::function<Run()> setUp, int runs) {
  benchmark::RegisterBenchmark((name + '/' + cpuLevelName(level)).c_str(),
                               [name, level, setUp = std::move(setUp), runs](benchmark::State &state) {
                                 measureStage(state, name, level, setUp, runs);
                               })
      ->UseManualTime()
      ->Iterations(kRepetitions)
      ->Unit(benchmark::kNanosecond);
  return true;
}

bool addStageAtEveryLevel(const std::string &name, const std::function<Run(CpuLevel)> &setUp, int runs) {
  for (const CpuLevel level : kCpuLevels)
    if (level <= detectCpuLevel())
      addStage(
          name, level, [setUp, level] { return setUp(level); }, runs);
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
  if (jsonPath != nullptr && !qav::bench::writeJson(jsonPath)) {
    std::fprintf(stderr, "qav_bench: %s: cannot be written\n", jsonPath);
    return 2;
  }
  return 0;
}
