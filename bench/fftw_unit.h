// The unit F.
#pragma once

#include <fftw3.h>

#include <vector>

namespace qav::bench {

// FFTW's real-to-complex transform of 1024 floats: measured plans, aligned data, the fastest of several plans.
class FftwUnit {
 public:
  FftwUnit();
  ~FftwUnit();
  FftwUnit(const FftwUnit &) = delete;
  FftwUnit &operator=(const FftwUnit &) = delete;

  // The time of one transform in nanoseconds, over `transforms` of them.
  double measure(int transforms) const;

 private:
  double measure(const fftwf_plan &plan, int transforms) const;

  float *in;
  fftwf_complex *out;
  std::vector<fftwf_plan> plans;
  fftwf_plan best;
};

// The one that this process measures with.
const FftwUnit &unit();

}  // namespace qav::bench
