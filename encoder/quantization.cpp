#include "encoder/quantization.h"

#include <array>

#include "encoder/coded_channels.h"

namespace qav {
namespace {

// The coefficients A by quantisation class (ISO/IEC 11172-3 Table C.6); B is A - 1.
constexpr float aTbl[17] = {0.75f,
                            0.625f,
                            0.875f,
                            0.5625f,
                            0.9375f,
                            0.96875f,
                            0.984375f,
                            0.9921875f,
                            0.99609375f,
                            0.998046875f,
                            0.9990234375f,
                            0.99951171875f,
                            0.999755859375f,
                            0.9998779296875f,
                            0.99993896484375f,
                            0.999969482421875f,
                            0.9999847412109375f};

// The reciprocals of the scale factors: 2^(i/3 - 1); entry 63 meets nothing but zeros.
constexpr std::array<float, 64> multipleR = [] {
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

// With x / scale in [-1, 1], d - 1 is the standard's A x / scale + B: its sign, inverted, and its fraction make the code.
NEB_INLINE uint32_t quantize(float x, float r, float a, uint32_t n) {
  const float d = fusedProductPlusOne(x, r) * a;
  const bool notNegative = d >= 1.0f;
  const float fraction = notNegative ? d - 1.0f : d;
  const uint32_t sign = notNegative ? 1u << n : 0u;
  return uint32_t(int32_t(fraction * float(1u << n))) | sign;
}

NEB_INLINE void quantizationBody(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                                 const uint32_t allocation[2][32], QuantizedFrame quantized[2],
                                 const FrameParams &frame) {
  for (int32_t ch = 0; ch < codedChannels(frame); ++ch)
    for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
      if (allocation[ch][sb] == 0) continue;
      const AllocEntry &e = frame.allocTable[sb][allocation[ch][sb]];
      const float a = aTbl[e.quant];
      const uint32_t n = uint32_t(std::bit_width(e.steps)) - 1;
      for (uint32_t part = 0; part < kParts; ++part) {
        const float r = multipleR[scaleIndex[ch][part][sb]];
        for (uint32_t t = part * kPartSamples; t < (part + 1) * kPartSamples; ++t)
          quantized[ch][sb][t] = quantize(sbSample[ch][sb][t], r, a, n);
      }
    }
}

}  // namespace

void II_subband_quantization(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                             const uint32_t allocation[2][32], QuantizedFrame quantized[2], const FrameParams &frame) {
  quantizationBody(scaleIndex, sbSample, allocation, quantized, frame);
}

QuantizationFn quantizationFor(CpuLevel) { return II_subband_quantization; }

}  // namespace qav
