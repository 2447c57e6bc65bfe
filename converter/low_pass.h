// A low-pass filter for PCM that was widened from 8 bits: 31 taps, linear phase, a delay of 15 samples.
#pragma once

#include <array>
#include <cstdint>

namespace qav {

inline constexpr int kLpfTaps = 31;

struct LpfState {
  uint32_t lpfLevel;               // 0 off, 1 .. 7: row lpfLevel - 1 of the coefficients
  float history[2][kLpfTaps - 1];  // the last input samples of each channel, oldest first
};

// Half of each filter, as it is symmetric: value k = 0 .. 14 is the weight of the two taps at distance 15 - k from the
// centre, value 15 that of the centre.
extern const std::array<std::array<double, 16>, 8> s_delayFacTbl;

// Forgets the past. The level is kept.
void ResetLPF(LpfState &s);

// Filters in place: `frames` samples of one channel when `channels` is 1, else of each of two interleaved channels. The
// level is not 0. Results beyond 16 bits wrap around.
void ActLPF(LpfState &s, int16_t *samples, int32_t channels, int32_t frames);

}  // namespace qav
