// One spectrum, real and imaginary parts apart.
#pragma once

#include "psycho/psycho_tables.h"

namespace qav {

struct alignas(64) Spectrum {
  float re[kPaddedLines], im[kPaddedLines];
};

}  // namespace qav
