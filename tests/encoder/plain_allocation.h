// The greedy allocation step by step, as the standard describes it: a scan of all candidates for every step.
#pragma once

#include <cstdint>

#include "include/qav.h"

namespace qav::test {

struct PlainAllocation {
  uint32_t allocation[2][32];
  int32_t bitsLeft;
  int32_t result;
};

PlainAllocation allocatePlainly(const float smr[2][32], const uint32_t scfsi[2][32], int32_t bitsAvailable,
                                const FrameParams &frame);

}  // namespace qav::test
