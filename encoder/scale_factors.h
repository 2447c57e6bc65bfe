// Scale factors and their selection information (ISO/IEC 11172-3 Annex C, clauses C.1.5.2.4 and C.1.5.2.5).
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "encoder/bit_writer.h"
#include "encoder/frame_shapes.h"
#include "include/qav.h"

namespace qav {

// For each part of each subband the index of the smallest scale factor that is not below its samples; index 0 for samples
// above them all, 63 for subbands from `sblimit` on.
using ScaleFactorFn = void (*)(const SubbandFrame sbSample[2], ScaleIndices scaleIndex[2], int32_t channels,
                               int32_t sblimit);

ScaleFactorFn scaleFactorsFor(CpuLevel level);

// The same at the level every CPU has.
void II_scale_factor_calc(const SubbandFrame sbSample[2], ScaleIndices scaleIndex[2], int32_t channels,
                          int32_t sblimit);

// Chooses which of a subband's three indices are sent, and makes those equal that share one.
void II_transmission_pattern(ScaleIndices scaleIndex[2], uint32_t scfsi[2][32], const FrameParams &frame);

// Writes the selection information of all subbands that have bits, then their indices.
void II_encode_scale(const uint32_t allocation[2][32], const uint32_t scfsi[2][32], const ScaleIndices scaleIndex[2],
                     const FrameParams &frame, BitWriter &writer);

}  // namespace qav
