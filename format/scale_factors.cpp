#include "format/scale_factors.h"

namespace qav {
namespace {

constexpr ScaleFactorTable scaleFactors() {
  constexpr double third[3] = {1.0, 0.79370052598409973738, 0.62996052494743658238};  // 2^(-i/3)
  ScaleFactorTable table{};
  double octave = 2.0;
  for (uint32_t i = 0; i < kNoScaleFactor; ++i) {
    table[i] = float(octave * third[i % 3]);
    if (i % 3 == 2) octave *= 0.5;
  }
  table[kNoScaleFactor] = 1.0e-20f;
  return table;
}

}  // namespace

constexpr ScaleFactorTable multiple = scaleFactors();

}  // namespace qav
