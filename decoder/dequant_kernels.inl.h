// The bodies of the dequantisers (ISO/IEC 11172-3 clauses 2.4.3.2 and 2.4.3.3.4), N granules at a time.
//
// A code's first bit inverted makes it a signed fraction s of -1 .. 1, here as an integer 2^31 times as large. Powers of
// two are moved between the factors freely, since that rounds nothing; sums and products stand in the standard's order.
#pragma once

#include <array>
#include <cstdint>

#include "base/attributes.h"
#include "base/lanes.h"
#include "decoder/dequant.h"

namespace qav::kernels {

// The constants of ISO/IEC 11172-3 Table B.4 by quantisation class, C divided and D multiplied by 2^31.
struct QuantConstants {
  float c[17], d[17];
};

constexpr QuantConstants quantConstants() {
  constexpr float kUnit = 0x1p31f;
  constexpr uint32_t levels[17] = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  QuantConstants table{};
  for (int q = 0; q < 17; ++q) {
    uint32_t power = 4;
    while (power < levels[q]) power *= 2;
    const bool grouped = levels[q] == 3 || levels[q] == 5 || levels[q] == 9;
    table.c[q] = float(double(power) / double(levels[q])) / kUnit;
    table.d[q] = (grouped ? 0.5f : 2.0f / float(power)) * kUnit;
  }
  // Decimals that were written down with too few digits: one unit in the last place above 2^-14 and 2^-15.
  table.d[15] = 0.00006103516f * kUnit;
  table.d[16] = 0.00003051758f * kUnit;
  return table;
}

inline constexpr QuantConstants kQuant = quantConstants();

// Codes at the top of 32-bit words, other bits behind them, as 2^31 s.
template <int N>
NEB_INLINE Lanes<float, N> signedFractions(Lanes<uint32_t, N> words, int32_t bits) {
  const uint32_t codeBits = ~uint32_t(0) << (32 - bits);
  return __builtin_convertvector((Lanes<int32_t, N>)((words & codeBits) ^ 0x80000000u), Lanes<float, N>);
}

template <int N>
NEB_INLINE void I_dequantizeBody(const FrameCodes &codes, const GranuleScales &scales, SubbandSamples &samples) {
  using Floats = Lanes<float, N>;
  for (int32_t i = 0; i < codes.count; ++i) {
    const SubbandCodes &subband = codes.subbands[i];
    const float power = float(1u << subband.bits);
    const float step = 0x1p32f / power;  // 2^31 times the distance of two codes' fractions
    for (int32_t g = 0; g < kGranules; g += N) {
      const auto words = loadLanes<Lanes<uint32_t, N>>(subband.upper + g);
      const Floats fraction = (signedFractions<N>(words, subband.bits) + step) * (power * 0x1p-31f) / (power - 1.0f);
      for (int32_t ch = subband.firstChannel; ch <= subband.lastChannel; ++ch)
        storeLanes(samples.value[ch][subband.sb] + g, fraction * loadLanes<Floats>(scales.value[ch][subband.sb] + g));
    }
  }
}

template <int N>
NEB_INLINE void II_dequantizeBody(const FrameCodes &codes, const GranuleScales &scales, SubbandSamples &samples) {
  using Floats = Lanes<float, N>;
  using Words = Lanes<uint32_t, N>;
  for (int32_t i = 0; i < codes.count; ++i) {
    const SubbandCodes &subband = codes.subbands[i];
    const float c = kQuant.c[subband.quant], d = kQuant.d[subband.quant];
    const bool thirdInUpper = 3 * subband.bits <= 32;
    for (int32_t k = 0; k < 3; ++k) {
      const uint32_t *const from = k < 2 || thirdInUpper ? subband.upper : subband.lower;
      const int32_t shift = k < 2 || thirdInUpper ? k * subband.bits : 0;
      // Where N does not divide 12, what the last step of a sample writes too much is overwritten by the next sample.
      for (int32_t g = 0; g < kGranules; g += N) {
        const Words words = loadLanes<Words>(from + g) << uint32_t(shift);
        const Floats fraction = (signedFractions<N>(words, subband.bits) + d) * c;
        for (int32_t ch = subband.firstChannel; ch <= subband.lastChannel; ++ch)
          storeLanes(samples.value[ch][subband.sb] + kGranules * k + g,
                     fraction * loadLanes<Floats>(scales.value[ch][subband.sb] + g));
      }
    }
  }
}

}  // namespace qav::kernels
