// The scale factors (ISO/IEC 11172-3 Table B.1).
#pragma once

#include <array>
#include <cstdint>

namespace qav {

using ScaleFactorTable = std::array<float, 64>;

// The index of a subband that carries no samples.
inline constexpr uint32_t kNoScaleFactor = 63;

// What a scale factor index stands for: 2^(1 - i/3) for i = 0 .. 62. Entry 63 is 1e-20: it multiplies nothing but
// zeros.
extern const ScaleFactorTable multiple;

}  // namespace qav
