// The energy of a signal as ITU-R BS.1770 weighs it: a shelf for the head, then a high-pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/vector_level.h"

namespace qav::tool {

// Two filters of second order, each as its recurrence: y = b0 x + b1 x' + b2 x'' - a1 y' - a2 y''. The high-pass has
// b = 1, -2, 1.
struct KFilter {
  double shelfB0, shelfB1, shelfB2, shelfA1, shelfA2;
  double highPassA1, highPassA2;
};

// For a sampling rate, by the bilinear transform of the filters that the recommendation gives for 48 kHz.
KFilter kFilterFor(uint32_t freqHz);

// Weighs in parallel what is far enough apart: a batch is cut into segments, each filtered from silence two steps before
// its begin. By then nothing of its start is left that a double could hold, so the segments add up as if it were one run.
class KWeighting {
 public:
  // Called with the weighted energy of every 100 ms, the sum over all samples of both channels.
  using TakeStep = std::function<void(double energy)>;

  KWeighting(uint32_t freqHz, unsigned channels, TakeStep take, VectorLevel level = widestVectors());

  void add(const float *samples, size_t frames);  // interleaved
  void finish();                                  // the last steps; one that is not complete is left out

  size_t stepFrames() const { return stepFrames_; }

  static constexpr size_t kLanes = 8;  // segments times channels
  struct State {
    double shelf1[kLanes], shelf2[kLanes], highPass1[kLanes], highPass2[kLanes];
  };
  // Filters rows of a sample for each lane, and adds up the squares of each lane.
  using WeighRows = void (*)(const KFilter &filter, State &state, const float (*rows)[kLanes], size_t count,
                             double *energies);

 private:
  static constexpr size_t kWarmUpSteps = 2;
  static constexpr size_t kSegmentSteps = 20;

  void weighBatch(size_t steps);
  void weigh(State &state, size_t step, double *energies) const;

  unsigned channels_;
  size_t segments_;
  size_t stepFrames_;
  KFilter filter_;
  TakeStep take_;
  WeighRows weighRows_;
  std::vector<float> samples_;  // those to warm up with, and the batch
  size_t filled_;               // of them
};

}  // namespace qav::tool
