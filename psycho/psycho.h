// Psychoacoustic model 2 (ISO/IEC 11172-3 Annex D) and its real FFT. What other folders use is in the public header:
// neb_psycho_analInit(), neb_psycho_anal() and neb_rdft().
#pragma once

#include "include/qav.h"
