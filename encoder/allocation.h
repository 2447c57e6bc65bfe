// Bit allocation (ISO/IEC 11172-3 Annex C, clause C.1.5.2.7): step by step, the next quantiser goes to the subband whose
// noise stands highest above its mask, as long as the frame has room.
#pragma once

#include <cstdint>

#include "base/cpu.h"
#include "include/qav.h"

namespace qav {

inline constexpr uint32_t kMaxSteps = 15;

// What the steps of a stream's subbands gain and cost; follows from its header.
struct AllocationPlan {
  int32_t channels;
  int32_t sblimit;
  int32_t sideBits;                     // header, check word and allocation fields of a frame
  int32_t steps[32];                    // that a subband can be given; falls from subband to subband
  float snrAfter[kMaxSteps + 1][32];    // signal-to-noise ratio in dB after b steps
  float stepSnr[kMaxSteps + 1][32];     // the same where step b exists, else infinite; steps count from 0
  float leastSnr[kMaxSteps + 1];        // the least of them
  int32_t stepBits[kMaxSteps + 1][32];  // sample bits that step b adds to a frame, or kNoStep
};

inline constexpr int32_t kNoStep = INT32_MAX;

AllocationPlan planAllocation(const FrameParams &frame);

// Chooses the allocation of every subband below the limit; the others are left alone. `bitsAvailable` holds the bits of the
// frame and receives those left over, which are negative when not even the side information fits. Returns minus the number
// of subbands whose noise ends below their mask.
using AllocationFn = int32_t (*)(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                                 int32_t &bitsAvailable, const AllocationPlan &plan);

AllocationFn allocationFor(CpuLevel level);

// The same at the level every CPU has.
int32_t II_a_bit_allocation(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                            int32_t &bitsAvailable, const AllocationPlan &plan);

}  // namespace qav
