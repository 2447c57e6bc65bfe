// Quantisation of the subband samples (ISO/IEC 11172-3 Annex C, clause C.1.5.2.8).
#pragma once

#include <array>
#include <cstdint>

#include "base/attributes.h"
#include "base/cpu.h"
#include "encoder/frame_shapes.h"
#include "include/qav.h"

namespace qav {

// The reciprocals of the scale factors: 2^(i/3 - 1); entry 63 meets nothing but zeros.
inline constexpr std::array<float, 64> reciprocalScaleFactors = [] {
  constexpr double third[3] = {1.0, 1.2599210498948731648, 1.5874010519681994748};  // 2^(i/3)
  std::array<float, 64> table{};
  double octave = 0.5;
  for (unsigned i = 0; i < 63; ++i) {
    table[i] = float(octave * third[i % 3]);
    if (i % 3 == 2) octave *= 2.0;
  }
  table[63] = 1.0e20f;
  return table;
}();

// x * r + 1 for one of these reciprocals. It is rounded twice and is nevertheless what a fused multiplication gives: with
// none of the reciprocals does a product come so near to the middle between two floats, and miss it, that the first
// rounding would end there. The tests look at all that come near.
NEB_INLINE float productPlusOne(float x, float r) { return float(double(x) * double(r) + 1.0); }

// Quantises every subband with an allocation; the others are left alone.
using QuantizationFn = void (*)(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                                const uint32_t allocation[2][32], QuantizedFrame quantized[2],
                                const FrameParams &frame);

QuantizationFn quantizationFor(CpuLevel level);

// The same, sample by sample.
void II_subband_quantization(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                             const uint32_t allocation[2][32], QuantizedFrame quantized[2], const FrameParams &frame);

}  // namespace qav
