// Quantisation of the subband samples (ISO/IEC 11172-3 Annex C, clause C.1.5.2.8).
#pragma once

#include <bit>
#include <cstdint>

#include "base/attributes.h"
#include "base/cpu.h"
#include "encoder/frame_shapes.h"
#include "include/qav.h"

namespace qav {

// x * r + 1 with one rounding, whether or not the CPU has an instruction for it.
//
// A product of two floats is exact in double precision. The sum is not always, and rounding it twice errs where the first
// rounding ends just between two floats: there the error of the first rounding says which way the second must go. The
// error is exact: either |x * r| < 1, or, as a product of 48 bits below 2^52, the sum is.
NEB_INLINE float fusedProductPlusOne(float x, float r) {
  const double product = double(x) * double(r);
  const double sum = product + 1.0;
  const double error = product - (sum - 1.0);
  constexpr uint64_t kBelowFloat = (uint64_t(1) << 29) - 1;
  constexpr uint64_t kHalf = uint64_t(1) << 28;
  uint64_t bits = std::bit_cast<uint64_t>(sum);
  if ((bits & kBelowFloat) == kHalf)
    bits += uint64_t(error > 0.0) - uint64_t(error < 0.0);  // the sum is positive there
  return float(std::bit_cast<double>(bits));
}

// Quantises every subband with an allocation; the others are left alone.
using QuantizationFn = void (*)(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                                const uint32_t allocation[2][32], QuantizedFrame quantized[2],
                                const FrameParams &frame);

QuantizationFn quantizationFor(CpuLevel level);

// The same, sample by sample.
void II_subband_quantization(const ScaleIndices scaleIndex[2], const SubbandFrame sbSample[2],
                             const uint32_t allocation[2][32], QuantizedFrame quantized[2], const FrameParams &frame);

}  // namespace qav
