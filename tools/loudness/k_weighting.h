// The energy of a signal as ITU-R BS.1770 weighs it: a shelf for the head, then a high-pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/loudness/vector_level.h"

namespace qav::tool {

// Two filters of second order, each as its recurrence: y = b0 x + b1 x' + b2 x'' - a1 y' - a2 y''. The high-pass has
// b = 1, -2, 1.
struct KFilter {
  double shelfB0, shelfB1, shelfB2, shelfA1, shelfA2;
  double highPassA1, highPassA2;
};

// For a sampling rate, by the bilinear transform of the filters that the recommendation gives for 48 kHz.
KFilter kFilterFor(uint32_t freqHz);

// Weighs in parallel what is far enough apart: a batch is cut into segments, each filtered from silence a step before its
// begin. By then nothing of its start is left that a float could hold, so the segments add up as if it were one run.
class KWeighting {
 public:
  // Called with the weighted energy of every 100 ms, the sum over all samples of both channels.
  using TakeStep = std::function<void(double energy)>;

  KWeighting(uint32_t freqHz, unsigned channels, TakeStep take, VectorLevel level = widestVectors());

  // Samples are put where the line of their channel ends, no more than there is room for; then it advances.
  size_t room() const { return lines_[0].size() - filled_; }
  float *end(unsigned channel) { return lines_[channel].data() + filled_; }
  void advance(size_t frames);

  void finish();  // the last steps; one that is not complete is left out

  size_t stepFrames() const { return stepFrames_; }

  static constexpr size_t kLanes = 16;  // segments times channels
  struct Coefficients {
    float shelfB0, shelfB1, shelfB2, shelfA1, shelfA2;
    float belowOfBand, belowOfResult, bandOfResult;
  };
  struct State {
    float shelf1[kLanes], shelf2[kLanes];
    float below[kLanes], band[kLanes];  // what the high-pass takes away, and its band-pass
  };
  // Filters so many samples of each lane's line, and tells the sum of the squares.
  using Weigh = void (*)(const Coefficients &coefficients, State &state, const float *const *lines, size_t count,
                         float *energies);

 private:
  static constexpr size_t kWarmUpSteps = 1;
  static constexpr size_t kSegmentSteps = 5;  // as many as the nearer caches hold

  static Coefficients coefficientsOf(const KFilter &filter);
  void weighBatch(size_t steps);
  void weighStep(State &state, size_t step, double *energies) const;

  unsigned channels_;
  size_t segments_;
  size_t stepFrames_;
  Coefficients coefficients_;
  TakeStep take_;
  Weigh weigh_;
  std::vector<std::vector<float>> lines_;  // by channel: samples to warm up with, and the batch
  size_t filled_;                          // of a line
};

}  // namespace qav::tool
