#include "psycho/psycho_tables.h"

#include "base/exact_math.h"

namespace qav {

// ISO/IEC 11172-3 Table D.2, the critical bands, extended to the highest line.
const float crit_band[27] = {0,    100,  200,  300,  400,  510,  630,  770,  920,  1080,  1270,  1480,  1720, 2000,
                             2320, 2700, 3150, 3700, 4400, 5300, 6400, 7700, 9500, 12000, 15500, 25000, 30000};

const float bmax[27] = {20.0f, 20.0f, 20.0f, 20.0f, 20.0f, 17.0f, 15.0f, 10.0f, 7.0f,  //
                        4.4f,  4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  //
                        4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  4.5f,  3.5f,  3.5f,  3.5f};

namespace {

constexpr AnalysisWindow makeWindow() {
  constexpr double kTwoPi = 6.28318530717958;
  AnalysisWindow window = {};
  for (int i = 0; i < kTransformSize; ++i)
    window.of[i % 2][i / 2] = float(0.5 * (1.0 - exactCos(kTwoPi * (i - 0.5) / kTransformSize)));
  return window;
}

}  // namespace

alignas(64) constexpr AnalysisWindow analysisWindow = makeWindow();

}  // namespace qav
