#include "encoder/quantization.h"

#include <array>
#include <bit>
#include <cstring>

#include "base/lanes.h"
#include "base/wide_lanes.h"
#include "encoder/coded_channels.h"

namespace qav {
namespace {

struct Quantizer {
  float a;       // the coefficient A (ISO/IEC 11172-3 Table C.6); B is A - 1
  float scale;   // 2^n, n the number of bits behind the sign
  int32_t sign;  // bit n
};

// By quantisation class. A is levels / 2^(n + 1).
constexpr std::array<Quantizer, 17> quantizers = [] {
  constexpr uint32_t kLevels[17] = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  std::array<Quantizer, 17> table{};
  for (unsigned i = 0; i < 17; ++i) {
    const uint32_t sign = std::bit_floor(kLevels[i]);
    table[i] = {float(kLevels[i]) / float(2 * sign), float(sign), int32_t(sign)};
  }
  return table;
}();

// With x / scale in [-1, 1], d - 1 is the standard's A x / scale + B: its sign, inverted, and its fraction make the code.
void quantizeSubbandPlainly(const float x[kSubbandSamples], const float r[kParts], const Quantizer &quantizer,
                            uint32_t codes[kSubbandSamples]) {
  for (uint32_t place = 0; place < kSubbandSamples; ++place) {
    const float d = productPlusOne(x[place], r[place % kGranules / kPartGranules]) * quantizer.a;
    const bool notNegative = d >= 1.0f;
    const int32_t code = int32_t((notNegative ? d - 1.0f : d) * quantizer.scale);
    codes[place] = uint32_t(code | (notNegative ? quantizer.sign : 0));
  }
}

#if defined(__x86_64__)

NEB_INLINE Lanes<double, 2> inDouble(const Lanes<float, 4> &v) { return Lanes<double, 2>(_mm_cvtps_pd(v)); }

NEB_INLINE void productPlusOneByDoubles(Lanes<float, 4> &v, const Lanes<float, 4> &x, const Lanes<float, 4> &r) {
  const Lanes<double, 2> low = inDouble(x) * inDouble(r) + 1.0;
  const Lanes<double, 2> high = inDouble(_mm_movehl_ps(x, x)) * inDouble(_mm_movehl_ps(r, r)) + 1.0;
  v = _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}

#define QAV_LEVEL baseline
#define QAV_TARGET
#define QAV_FUSED 0
#include "encoder/quantization_kernel.inl"

#define QAV_LEVEL fused
#define QAV_TARGET QAV_TARGET_AVX2
#define QAV_FUSED 1
#include "encoder/quantization_kernel.inl"

#endif

}  // namespace

void II_subband_quantization(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                             const uint32_t allocation[2][32], QuantizedFrame quantized[2], const FrameParams &frame) {
  for (int32_t ch = 0; ch < codedChannels(frame); ++ch)
    for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
      if (allocation[ch][sb] == 0) continue;
      float r[kParts];
      for (uint32_t part = 0; part < kParts; ++part) r[part] = reciprocalScaleFactors[scaleIndex[ch][part][sb]];
      const AllocEntry &e = frame.allocTable[sb][allocation[ch][sb]];
      quantizeSubbandPlainly(sbSample[ch][sb], r, quantizers[e.quant], quantized[ch][sb]);
    }
}

QuantizationFn quantizationFor(CpuLevel level) {
#if defined(__x86_64__)
  return level >= CpuLevel::Avx2 ? fused::quantize : baseline::quantize;
#else
  static_cast<void>(level);
  return II_subband_quantization;
#endif
}

}  // namespace qav
