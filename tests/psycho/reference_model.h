// Psychoacoustic model 2 written from its equations: double precision, angles, a direct Fourier sum, dense matrices.
#pragma once

#include <cstdint>
#include <vector>

namespace reference {

class Model {
 public:
  explicit Model(int samplingIndex);

  // 32 ratios in dB of the next 1152 samples of a channel.
  std::vector<double> analyse(const int16_t *samples, int channel);

  int partitions = 0;         // those in use
  std::vector<int> numlines;  // 63
  std::vector<double> bark;   // mean of each partition
  std::vector<double> norm, tmn, leastRatio;
  std::vector<std::vector<double>> spread;  // [maskee][masker]

 private:
  struct Pass {
    std::vector<double> magnitude, phase;
  };
  std::vector<double> threshold;
  std::vector<double> kept[2];  // the last 480 samples
  Pass history[2][2];           // per channel: previous pass, the one before
};

}  // namespace reference
