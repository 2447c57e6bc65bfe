// Constants of psychoacoustic model 2 that do not depend on the stream.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qav {

inline constexpr int kTransformSize = 1024;
inline constexpr int kLines = 513;        // spectral lines 0 .. 512 of one transform
inline constexpr int kPaddedLines = 528;  // rounded up, so that whole vectors can be read and written
inline constexpr int kPartitions = 63;
inline constexpr int kPaddedPartitions = 64;

// Edges of the critical bands in Hz: edge j is j Bark.
extern const float crit_band[27];

// The least ratio in dB of a masker to the noise it may mask, per whole Bark.
extern const float bmax[27];

// The Hann window of the transform, offset by half a sample: of the even samples, and of the odd ones.
struct AnalysisWindow {
  float of[2][kTransformSize / 2];
};
extern const AnalysisWindow analysisWindow;

// Threshold in quiet of each line in hundredths of a dB, per sampling index: 44100, 48000, 32000 Hz.
extern const int16_t absoluteThresholdHundredths[3][kLines];

// The same in units of energy of the unscaled transform of windowed 16-bit samples; 0 beyond line 512.
extern const std::array<float, kPaddedLines> absthrTbl[3];

}  // namespace qav
