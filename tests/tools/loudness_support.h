// What the tests of the loudness meter have in common.
#pragma once

#include <vector>

#include "tests/support/random.h"
#include "tools/loudness/vector_level.h"

namespace qav::tool {

// Evenly between the two.
inline double uniform(test::Random &random, double least, double greatest) {
  return least + (greatest - least) * (random() * 0x1p-32);
}

// The vectors that this CPU has, from the narrowest on.
inline std::vector<VectorLevel> vectorLevels() {
  std::vector<VectorLevel> levels;
  for (const VectorLevel level : {VectorLevel::baseline, VectorLevel::avx2, VectorLevel::avx512})
    if (level <= widestVectors()) levels.push_back(level);
  return levels;
}

}  // namespace qav::tool
