// Writing the codewords of the samples (ISO/IEC 11172-3 clause 2.4.1.6).
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "encoder/bit_writer.h"
#include "encoder/frame_shapes.h"
#include "include/qav.h"

namespace qav {

// Writes the twelve granules one after the other; in each, subband by subband, channel 0 first, the codes of three samples
// or the one codeword that they share.
using SampleEncodingFn = void (*)(const QuantizedFrame quantized[2], const uint32_t allocation[2][32],
                                  const FrameParams &frame, BitWriter &writer);

SampleEncodingFn sampleEncodingFor(CpuLevel level);

// The same at the level every CPU has.
void II_sample_encoding(const QuantizedFrame quantized[2], const uint32_t allocation[2][32], const FrameParams &frame,
                        BitWriter &writer);

}  // namespace qav
