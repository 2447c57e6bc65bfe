// The bodies of the dequantisers (ISO/IEC 11172-3 clauses 2.4.3.2 and 2.4.3.3.4), N granules side by side.
//
// A code's first bit inverted makes it a signed fraction of -1 .. 1, here as an integer 2^31 times as large. Powers of two
// are moved between the factors freely, since that rounds nothing; sums and products stand in the standard's order.
#pragma once

#include <bit>
#include <cstdint>

#include "base/attributes.h"
#include "base/lanes.h"
#include "decoder/sample_codes.h"
#include "decoder/shuffle.inl.h"
#include "decoder/side_info.h"
#include "decoder/subband_samples.h"
#include "format/scale_factors.h"

namespace qav::kernels {

// What the fraction of a code is made from, by quantisation class (ISO/IEC 11172-3 Table B.4).
struct QuantConstants {
  // Of signed fractions times 2^31: D times as much, C as much smaller.
  float d[17], c[17];
  // Of the codes as numbers, where three samples share a codeword: the number of levels, its inverse, and C over half its
  // power of two.
  float levels[17], inverse[17], step[17];
};

constexpr QuantConstants quantConstants() {
  constexpr float kUnit = 0x1p31f;
  constexpr uint32_t levels[17] = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  QuantConstants table{};
  for (int q = 0; q < 17; ++q) {
    uint32_t power = 4;
    while (power < levels[q]) power *= 2;
    const float c = float(double(power) / double(levels[q]));
    table.c[q] = c / kUnit;
    table.d[q] = 2.0f / float(power) * kUnit;
    table.levels[q] = float(levels[q]);
    table.inverse[q] = 1.0f / float(levels[q]);
    table.step[q] = c / float(power / 2);
  }
  // Decimals that were written down with too few digits: one unit in the last place above 2^-14 and 2^-15.
  table.d[15] = 0.00006103516f * kUnit;
  table.d[16] = 0.00003051758f * kUnit;
  return table;
}

inline constexpr QuantConstants kQuant = quantConstants();

template <int N>
struct UpperHalves {
  static constexpr int at(int l) { return 2 * l + (std::endian::native == std::endian::little ? 1 : 0); }
};

// The upper 32 bits of N words, shifted left by `shift`.
template <int N>
NEB_INLINE Lanes<uint32_t, N> upperBits(const uint64_t *words, int32_t shift) {
  if constexpr (N == 1) {
    return Lanes<uint32_t, 1>{uint32_t(words[0] << shift >> 32)};
  } else {
    using Words = Lanes<uint64_t, N / 2>;
    const Words low = loadLanes<Words>(words) << uint64_t(shift);
    const Words high = loadLanes<Words>(words + N / 2) << uint64_t(shift);
    return shuffle<UpperHalves<N>, N>((Lanes<uint32_t, N>)low, (Lanes<uint32_t, N>)high);
  }
}

// Codes at the top of 32-bit words, other bits behind them, as 2^31 times their signed fraction.
template <int N>
NEB_INLINE Lanes<float, N> signedFractions(Lanes<uint32_t, N> words, int32_t bits) {
  const uint32_t codeBits = ~uint32_t(0) << (32 - bits);
  return __builtin_convertvector((Lanes<int32_t, N>)((words & codeBits) ^ 0x80000000u), Lanes<float, N>);
}

// N granules at a time: 12, or 16 of which the last four are of no meaning.
template <int N>
inline constexpr int kSteps = (kGranules + N - 1) / N;

// The scale factors of the N granules from `g` on: each third of the frame, four granules, has its own.
template <int N>
NEB_INLINE Lanes<float, N> granuleScales(const float (&ofThird)[3], int g) {
  using V = Lanes<float, N>;
  if constexpr (N <= 4) {
    return V{} + ofThird[g / 4];
  } else {
    Lanes<int32_t, N> granule;
#pragma GCC unroll 16
    for (int l = 0; l < N; ++l) granule[l] = g + l;
    const V first = V{} + ofThird[0], second = V{} + ofThird[1], third = V{} + ofThird[2];
    return granule < 4 ? first : granule < 8 ? second : third;
  }
}

// Scales the fractions of one field, K samples of each granule, and puts them in their channels' places.
template <int N, int K>
NEB_INLINE void storeSamples(const Lanes<float, N> (&fraction)[K][kSteps<N>], const CodeField &field,
                             const SideInfo &side, SubbandSamples &samples) {
  for (int32_t ch = field.firstChannel; ch <= field.lastChannel; ++ch) {
    const auto &index = side.scaleFactor[ch];
    const float ofThird[3] = {multiple[index[0][field.sb]], multiple[index[1][field.sb]], multiple[index[2][field.sb]]};
    float *const out = samples.value[field.sb] + kChannelStride * ch;
    // Where N does not divide 12, what the last step of a sample writes too much is overwritten by the next sample.
#pragma GCC unroll 3
    for (int k = 0; k < K; ++k)
#pragma GCC unroll 12
      for (int n = 0; n < kSteps<N>; ++n)
        storeLanes(out + kGranules * k + n * N, fraction[k][n] * granuleScales<N>(ofThird, n * N));
  }
}

template <int N>
NEB_INLINE void I_dequantizeBody(const FrameCodes &codes, const SideInfo &side, SubbandSamples &samples) {
  for (int32_t i = 0; i < codes.single.count; ++i) {
    const CodeField field = codes.single.field[i];
    const float power = float(1u << field.bits);
    const float step = 0x1p32f / power;  // 2^31 times the distance of two codes' fractions
    Lanes<float, N> fraction[1][kSteps<N>];
    for (int n = 0; n < kSteps<N>; ++n) {
      const auto words = upperBits<N>(codes.words[field.word] + n * N, field.shift);
      fraction[0][n] = (signedFractions<N>(words, field.bits) + step) * (power * 0x1p-31f) / (power - 1.0f);
    }
    storeSamples<N>(fraction, field, side, samples);
  }
}

// Codewords of three samples: numbers of three digits to the base of the number of levels, lowest digit first. Quotients
// by way of floating point are exact: with half added, they stay away from whole numbers by more than their error.
template <int N>
NEB_INLINE void dequantizeGrouped(const FrameCodes &codes, const SideInfo &side, SubbandSamples &samples) {
  using Floats = Lanes<float, N>;
  for (int32_t i = 0; i < codes.grouped.count; ++i) {
    const CodeField field = codes.grouped.field[i];
    const float levels = kQuant.levels[field.quant], inverse = kQuant.inverse[field.quant];
    const float middle = 0.5f * (levels - 1.0f), step = kQuant.step[field.quant];
    Floats fraction[3][kSteps<N>];
#pragma GCC unroll 12
    for (int n = 0; n < kSteps<N>; ++n) {
      const auto words = upperBits<N>(codes.words[field.word] + n * N, field.shift);
      Floats rest = __builtin_convertvector((Lanes<int32_t, N>)(words >> uint32_t(32 - field.bits)), Floats);
#pragma GCC unroll 3
      for (int k = 0; k < 3; ++k) {
        const auto whole = __builtin_convertvector((rest + 0.5f) * inverse, Lanes<int32_t, N>);
        const Floats quotient = __builtin_convertvector(whole, Floats);
        fraction[k][n] = (rest - quotient * levels - middle) * step;
        rest = quotient;
      }
    }
    storeSamples<N>(fraction, field, side, samples);
  }
}

// Three codes each; `Long` when they do not fit into 32 bits together.
template <int N, bool Long>
NEB_INLINE void dequantizeTriples(const FieldList &list, const FrameCodes &codes, const SideInfo &side,
                                  SubbandSamples &samples) {
  for (int32_t i = 0; i < list.count; ++i) {
    const CodeField field = list.field[i];
    const float c = kQuant.c[field.quant], d = kQuant.d[field.quant];
    const uint32_t bits = uint32_t(field.bits);
    Lanes<float, N> fraction[3][kSteps<N>];
#pragma GCC unroll 12
    for (int n = 0; n < kSteps<N>; ++n) {
      const uint64_t *const from = codes.words[field.word] + n * N;
      const auto first = upperBits<N>(from, field.shift);
      const auto third = Long ? upperBits<N>(from, field.shift + 2 * field.bits) : first << 2 * bits;
      fraction[0][n] = (signedFractions<N>(first, field.bits) + d) * c;
      fraction[1][n] = (signedFractions<N>(first << bits, field.bits) + d) * c;
      fraction[2][n] = (signedFractions<N>(third, field.bits) + d) * c;
    }
    storeSamples<N>(fraction, field, side, samples);
  }
}

template <int N>
NEB_INLINE void II_dequantizeBody(const FrameCodes &codes, const SideInfo &side, SubbandSamples &samples) {
  dequantizeGrouped<N>(codes, side, samples);
  dequantizeTriples<N, false>(codes.shortTriples, codes, side, samples);
  dequantizeTriples<N, true>(codes.longTriples, codes, side, samples);
}

// Silences the subbands of a channel that have no samples.
template <int N>
NEB_INLINE void clearBody(const uint32_t (&allocation)[32], int32_t ch, SubbandSamples &samples) {
  for (int32_t sb = 0; sb < 32; ++sb)
    if (allocation[sb] == 0)
#pragma GCC unroll 40
      for (int32_t i = 0; i < kChannelStride; i += N < 8 ? N : 8)
        storeLanes(samples.value[sb] + kChannelStride * ch + i, Lanes < float, N<8 ? N : 8>{});
}

}  // namespace qav::kernels
