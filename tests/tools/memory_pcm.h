// A PCM input out of memory.
#pragma once

#include <algorithm>
#include <vector>

#include "tools/pcm/pcm_reader.h"

namespace qav::tool {

template <typename Sample>
class MemoryPcm final : public PcmReader {
 public:
  MemoryPcm(uint32_t freqHz, unsigned channels, std::vector<Sample> samples, unsigned bits = 8 * sizeof(Sample))
      : samples_(std::move(samples)) {
    format_.freqHz = freqHz;
    format_.channels = channels;
    format_.bits = bits;
    format_.floating = sizeof(Sample) > 2;
    format_.fits16 = sizeof(Sample) == 2;
    format_.container = "memory";
  }

 protected:
  size_t readInt16(int16_t *to, size_t frames) override { return take(to, frames); }
  size_t readDouble(double *to, size_t frames) override { return take(to, frames); }

 private:
  template <typename Wanted>
  size_t take(Wanted *to, size_t frames) {
    const size_t n = std::min(frames, (samples_.size() - at_) / format_.channels);
    for (size_t i = 0; i < n * format_.channels; ++i) to[i] = static_cast<Wanted>(samples_[at_ + i]);
    at_ += n * format_.channels;
    return n;
  }

  std::vector<Sample> samples_;
  size_t at_ = 0;
};

}  // namespace qav::tool
