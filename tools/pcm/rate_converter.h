// Sampling-rate conversion of a stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct FreqChangeState;
struct soxr;

namespace qav::tool {

enum class Resampler {
  soxr,   // the SoX resampler at very high quality
  linear  // the library's own linear interpolation
};

const char *resamplerName(Resampler resampler);

// Sample frames that `frames` of them become, rounded.
uint64_t convertedFrames(uint64_t frames, uint32_t inFreqHz, uint32_t outFreqHz);

// Both converters below take blocks of any size and hand out what is complete; flush() hands out the rest, so that the
// output is as long as the input to half a sample frame, and aligned with it. Results are appended to `out`.

class SoxrConverter {
 public:
  SoxrConverter(uint32_t inFreqHz, uint32_t outFreqHz, unsigned channels);
  ~SoxrConverter();
  SoxrConverter(const SoxrConverter &) = delete;
  SoxrConverter &operator=(const SoxrConverter &) = delete;

  void convert(const double *in, size_t frames, std::vector<double> &out);
  void flush(std::vector<double> &out);

 private:
  void process(const double *in, size_t frames, std::vector<double> &out);

  soxr *soxr_;
  unsigned channels_;
};

class LinearConverter {
 public:
  LinearConverter(uint32_t inFreqHz, uint32_t outFreqHz, unsigned channels);
  ~LinearConverter();
  LinearConverter(const LinearConverter &) = delete;
  LinearConverter &operator=(const LinearConverter &) = delete;

  void convert(const int16_t *in, size_t frames, std::vector<int16_t> &out);
  void flush(std::vector<int16_t> &out);

 private:
  void process(const int16_t *in, size_t frames, std::vector<int16_t> &out);

  FreqChangeState *state_ = nullptr;
  uint32_t inFreqHz_, outFreqHz_;
  unsigned channels_;
  uint64_t consumed_ = 0, produced_ = 0;
  int16_t last_[2] = {};
};

}  // namespace qav::tool
