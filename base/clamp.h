// Saturation to the range of a 16-bit sample.
#pragma once

#include <cstdint>

namespace qav {

// The sample nearest to `value`, which is any 32-bit integer.
constexpr int16_t clampToSample(int32_t value) {
  return int16_t(value > INT16_MAX ? INT16_MAX : value < INT16_MIN ? INT16_MIN : value);
}

}  // namespace qav
