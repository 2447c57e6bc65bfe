// PCM for tests of the whole encoder.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "tests/support/random.h"

namespace qav::test {

// Interleaved samples: tones that come and go under noise of changing colour, silence, and full-scale steps.
inline std::vector<int16_t> mixedSignal(uint32_t frames, uint32_t channels, uint32_t seed) {
  std::vector<int16_t> pcm(size_t(frames) * 1152 * channels);
  Random random(seed);
  // Integer arithmetic alone, so that every machine makes the same samples.
  int64_t low[2] = {};
  for (size_t i = 0; i < pcm.size() / channels; ++i) {
    const size_t scene = i / 2500 % 6;
    for (uint32_t ch = 0; ch < channels; ++ch) {
      const int32_t noise = int32_t(random() & 0xFFFF) - 32768;
      low[ch] += (int64_t(noise) * 256 - low[ch]) / 16;
      const int64_t triangle = int64_t(i * (7 + scene + ch) % 400) - 200;
      int64_t value = 0;
      if (scene == 0) value = triangle * 100 + noise / 64;
      if (scene == 1) value = low[ch] / 256 + triangle * 20;
      if (scene == 2) value = noise;
      if (scene == 3) value = 0;
      if (scene == 4) value = i / 50 % 2 == 0 ? 32767 : -32768;
      if (scene == 5) value = noise >> (i / 100 % 16);
      pcm[i * channels + ch] = int16_t(value > 32767 ? 32767 : value < -32768 ? -32768 : value);
    }
  }
  return pcm;
}

// Interleaved samples: two dozen steady tones over noise that falls towards high frequencies, a fifth apart between the
// channels.
inline std::vector<int16_t> chord(uint32_t frames, uint32_t channels, uint32_t hz) {
  std::vector<int16_t> pcm(size_t(frames) * 1152 * channels);
  Random random(hz);
  double low[2] = {};
  for (size_t i = 0; i < pcm.size() / channels; ++i)
    for (uint32_t ch = 0; ch < channels; ++ch) {
      double value = 0;
      for (int k = 1; k <= 24; ++k)
        value += 4000.0 / k * std::sin(2 * M_PI * 220 * k * (1 + 0.5 * ch) * double(i) / hz + k * k);
      low[ch] = 0.8 * low[ch] + (double(random()) / 4294967296.0 - 0.5) * 400;
      pcm[i * channels + ch] = int16_t(value + low[ch]);
    }
  return pcm;
}

}  // namespace qav::test
