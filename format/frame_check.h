// The frame check word: CRC-16 with the polynomial x^16 + x^15 + x^2 + 1 over the protected bits of a frame
// (ISO/IEC 11172-3 clause 2.4.3.1). Its two functions, neb_I_CRC_calc and neb_II_CRC_calc, are public.
#pragma once

#include "include/qav.h"
