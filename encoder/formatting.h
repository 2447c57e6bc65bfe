// Writing a frame: header, allocation, stuffing (ISO/IEC 11172-3 clause 2.4.1).
#pragma once

#include <cstdint>

#include "encoder/bit_writer.h"
#include "include/qav.h"

namespace qav {

void writeHeader(const FrameParams &frame, BitWriter &writer);

void II_encode_bit_alloc(const uint32_t allocation[2][32], const FrameParams &frame, BitWriter &writer);

// Appends `bits` zeros; none when negative.
void writeStuffing(int32_t bits, BitWriter &writer);

}  // namespace qav
