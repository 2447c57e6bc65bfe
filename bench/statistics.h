#pragma once

#include <algorithm>
#include <vector>

namespace qav::bench {

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace qav::bench
