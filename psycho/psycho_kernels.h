// The parts of the model that are compiled for each CPU level. All sets give the same bits.
#pragma once

#include <cstdint>

#include "base/cpu.h"

namespace qav {

struct PsychoChannel;
struct PsychoTables;

struct PsychoKernels {
  // The real transform of 1024 points, as neb_rdft().
  void (*rdft1024)(float *a);
  // One channel of one frame, as neb_psycho_anal().
  void (*analyse)(const int16_t *samples, const PsychoTables &tables, PsychoChannel &channel, float *smr);
};

// The set for a level that this CPU has.
const PsychoKernels &psychoKernels(CpuLevel level);

}  // namespace qav
