#include "bench/fftw_unit.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "bench/bench.h"

namespace qav::bench {
namespace {

constexpr int kPoints = 1024;
constexpr int kPlans = 5;

}  // namespace

FftwUnit::FftwUnit() : in(fftwf_alloc_real(kPoints)), out(fftwf_alloc_complex(kPoints / 2 + 1)), best(nullptr) {
  double fastest = std::numeric_limits<double>::max();
  for (int i = 0; i < kPlans; ++i) {
    fftwf_forget_wisdom();
    plans.push_back(fftwf_plan_dft_r2c_1d(kPoints, in, out, FFTW_MEASURE));
    for (int j = 0; j < kPoints; ++j) in[j] = float(j % 37) - 18.0f;
    double time = std::numeric_limits<double>::max();
    for (int round = 0; round < 20; ++round) time = std::min(time, measure(plans.back(), 200));
    if (time < fastest) {
      fastest = time;
      best = plans.back();
    }
  }
}

FftwUnit::~FftwUnit() {
  for (const fftwf_plan &plan : plans) fftwf_destroy_plan(plan);
  fftwf_free(in);
  fftwf_free(out);
}

double FftwUnit::measure(int transforms) const { return measure(best, transforms); }

double FftwUnit::measure(const fftwf_plan &plan, int transforms) const {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  for (int i = 0; i < transforms; ++i) {
    fftwf_execute(plan);
    keep(out);
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / transforms;
}

const FftwUnit &unit() {
  static const FftwUnit instance;
  return instance;
}

}  // namespace qav::bench
