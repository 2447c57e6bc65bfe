// Streams joined from several formats, as one: later stretches are converted to the first one's rate and channels.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/pcm/pcm_target.h"

struct soxr;

namespace qav::tool {

class StretchJoiner {
 public:
  explicit StretchJoiner(PcmTarget &target) : target_(target) {}
  ~StretchJoiner();
  StretchJoiner(const StretchJoiner &) = delete;
  StretchJoiner &operator=(const StretchJoiner &) = delete;

  // A stretch begins. The first one opens the target.
  void begin(uint32_t freqHz, uint32_t channels);
  void write(const int16_t *samples, size_t frames);
  int16_t *next();  // as of the target; null where samples do not go there as they are
  void silence(uint64_t frames);
  void finish();  // closes the target, where one was opened

 private:
  void endStretch();
  void resample(const int16_t *samples, size_t frames);

  PcmTarget &target_;
  uint32_t freqHz_ = 0;  // of the target; 0: nothing has begun
  uint32_t channels_ = 0;
  uint32_t stretchFreqHz_ = 0;
  uint32_t stretchChannels_ = 0;
  soxr *resampler_ = nullptr;
  std::vector<int16_t> mixed_;      // in the target's channels
  std::vector<int16_t> resampled_;  // in the target's rate
};

}  // namespace qav::tool
