// Psychoacoustic model 2 (ISO/IEC 11172-3 Annex D) and its real FFT. What other folders use is in the public header:
// neb_psycho_analInit(), neb_psycho_anal() and neb_rdft(). What tests and benchmarks use besides is here.
#pragma once

#include "base/cpu.h"
#include "include/qav.h"

namespace qav {

// neb_psycho_analInit() for a level that this CPU has. The results do not depend on it.
PsychoState *initPsycho(const FrameParams &fp, CpuLevel level);

}  // namespace qav
