// Real FFT, single precision.
#pragma once

#include <cstdint>

#include "base/cpu.h"

namespace qav {

// Builds the tables of neb_rdft() for length n, where those in the work areas are for a shorter one.
//
// ip[0]: length of the twiddle table, at the start of w; ip[1]: length of the post-processing table, which follows it;
// ip[2]: the CPU level, so that it need not be asked for again at every transform.
void buildTables(int32_t n, int32_t *ip, float *w, CpuLevel level);

}  // namespace qav
