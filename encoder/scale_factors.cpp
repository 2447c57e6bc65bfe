#include "encoder/scale_factors.h"

#include <algorithm>
#include <array>
#include <bit>

#include "base/attributes.h"
#include "base/lanes.h"
#include "encoder/coded_channels.h"
#include "format/scale_factors.h"

namespace qav {
namespace {

using Floats = Lanes<float, 4>;
using Ints = Lanes<int32_t, 4>;

NEB_INLINE Floats magnitude(const float *p) { return Floats(loadLanes<Ints>(p) & 0x7FFFFFFF); }

NEB_INLINE Floats larger(Floats a, Floats b) { return a > b ? a : b; }

// The largest magnitude of each of a part's four granules.
NEB_INLINE Floats partMaxima(const float *part) {
  static_assert(kPartGranules == 4);
  return larger(larger(magnitude(part), magnitude(part + kGranules)), magnitude(part + 2 * kGranules));
}

// Scale factor i is 2^(1 - i/3): three to each power of two, 2^e, 2^(e + 1/3) and 2^(e + 2/3), where i is 3 - 3e, 2 - 3e
// and 1 - 3e. They are all roundings of three mantissas, so the exponent and three comparisons find the index.
constexpr uint32_t kMantissa = 0x7FFFFF;
constexpr int32_t kThird = int32_t(std::bit_cast<uint32_t>(1.2599210498948732f) & kMantissa);
constexpr int32_t kTwoThirds = int32_t(std::bit_cast<uint32_t>(1.5874010519681994f) & kMantissa);
constexpr int32_t kSmallest = 62;

NEB_INLINE Ints indexOf(Floats maximum) {
  const Ints bits = Ints(maximum);
  const Ints exponent = (bits >> 23) - 127;
  const Ints mantissa = bits & int32_t(kMantissa);
  // A comparison that holds is -1.
  const Ints index = 3 - 3 * exponent + (mantissa > 0) + (mantissa > kThird) + (mantissa > kTwoThirds);
  const Ints notNegative = index & (index > 0);
  return notNegative < kSmallest ? notNegative : Ints{} + kSmallest;
}

NEB_INLINE void scaleFactorBody(const SubbandFrame sbSample[2], ScaleIndices scaleIndex[2], int32_t channels,
                                int32_t sblimit) {
  for (int32_t ch = 0; ch < channels; ++ch)
    for (uint32_t part = 0; part < kParts; ++part) {
      uint32_t *const indices = scaleIndex[ch][part];
      for (int32_t sb = 0; sb < sblimit; sb += 4) {
        Floats max[4];
        for (int32_t i = 0; i < 4; ++i) max[i] = partMaxima(sbSample[ch][sb + i] + part * kPartGranules);
        // Lane i of the maximum is that of subband sb + i.
        const Floats a = __builtin_shufflevector(max[0], max[1], 0, 4, 1, 5);
        const Floats b = __builtin_shufflevector(max[0], max[1], 2, 6, 3, 7);
        const Floats c = __builtin_shufflevector(max[2], max[3], 0, 4, 1, 5);
        const Floats d = __builtin_shufflevector(max[2], max[3], 2, 6, 3, 7);
        const Floats ab = larger(a, b), cd = larger(c, d);
        const Floats all =
            larger(__builtin_shufflevector(ab, cd, 0, 1, 4, 5), __builtin_shufflevector(ab, cd, 2, 3, 6, 7));
        storeLanes(indices + sb, indexOf(all));
      }
      std::fill(indices + sblimit, indices + 32, kNoScaleFactor);
    }
}

// What to do with the indices s0, s1, s2 of a subband.
struct Pattern {
  uint8_t scfsi;
  uint8_t source[kParts];  // the index of which part serves each part; 3: the smaller one of s0 and s2
};

constexpr Pattern k123 = {0, {0, 1, 2}};
constexpr Pattern k122 = {3, {0, 1, 1}};
constexpr Pattern k133 = {3, {0, 2, 2}};
constexpr Pattern k113 = {1, {0, 0, 2}};
constexpr Pattern k111 = {2, {0, 0, 0}};
constexpr Pattern k222 = {2, {1, 1, 1}};
constexpr Pattern k333 = {2, {2, 2, 2}};
constexpr Pattern k444 = {2, {3, 3, 3}};

// ISO/IEC 11172-3 Table C.4, by the classes of s0 - s1 (row) and s1 - s2 (column).
constexpr Pattern ptnTbl[5][5] = {
    {k123, k122, k122, k133, k123},  //
    {k113, k111, k111, k444, k113},  //
    {k111, k111, k111, k333, k113},  //
    {k222, k222, k222, k333, k123},  //
    {k123, k122, k122, k133, k123},
};

// The class of a difference: <= -3, -2 .. -1, 0, 1 .. 2, >= 3.
constexpr unsigned differenceClass(int32_t d) { return unsigned(d > -3) + (d >= 0) + (d > 0) + (d >= 3); }

#ifdef NEB_TARGET
NEB_TARGET("avx2")
void scaleFactorsAvx2(const SubbandFrame sbSample[2], ScaleIndices scaleIndex[2], int32_t channels, int32_t sblimit) {
  scaleFactorBody(sbSample, scaleIndex, channels, sblimit);
}
#endif

}  // namespace

void II_scale_factor_calc(const SubbandFrame sbSample[2], ScaleIndices scaleIndex[2], int32_t channels,
                          int32_t sblimit) {
  scaleFactorBody(sbSample, scaleIndex, channels, sblimit);
}

ScaleFactorFn scaleFactorsFor(CpuLevel level) {
#ifdef NEB_TARGET
  if (level >= CpuLevel::Avx2) return scaleFactorsAvx2;
#endif
  static_cast<void>(level);
  return II_scale_factor_calc;
}

void II_transmission_pattern(ScaleIndices scaleIndex[2], uint32_t scfsi[2][32], const FrameParams &frame) {
  for (int32_t ch = 0; ch < codedChannels(frame); ++ch)
    for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
      uint32_t &s0 = scaleIndex[ch][0][sb], &s1 = scaleIndex[ch][1][sb], &s2 = scaleIndex[ch][2][sb];
      const Pattern &pattern =
          ptnTbl[differenceClass(int32_t(s0) - int32_t(s1))][differenceClass(int32_t(s1) - int32_t(s2))];
      const uint32_t sources[4] = {s0, s1, s2, std::min(s0, s2)};
      scfsi[ch][sb] = pattern.scfsi;
      s0 = sources[pattern.source[0]];
      s1 = sources[pattern.source[1]];
      s2 = sources[pattern.source[2]];
    }
}

void II_encode_scale(const uint32_t allocation[2][32], const uint32_t scfsi[2][32], const ScaleIndices scaleIndex[2],
                     const FrameParams &frame, BitWriter &writer) {
  const int32_t channels = codedChannels(frame);
  ShortFields selections;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < channels; ++ch)
      if (allocation[ch][sb] != 0) append(selections, scfsi[ch][sb], 2, writer);
  flush(selections, writer);

  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < channels; ++ch) {
      if (allocation[ch][sb] == 0) continue;
      const uint32_t s0 = scaleIndex[ch][0][sb], s1 = scaleIndex[ch][1][sb], s2 = scaleIndex[ch][2][sb];
      switch (scfsi[ch][sb]) {
        case 0: putbits(writer, s0 << 12 | s1 << 6 | s2, 18); break;
        case 2: putbits(writer, s0, 6); break;
        default: putbits(writer, s0 << 6 | s2, 12);  // 1: parts 0 and 1 share s0; 3: parts 1 and 2 share s2
      }
    }
}

}  // namespace qav
