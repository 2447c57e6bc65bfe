// The window of the polyphase filterbank (ISO/IEC 11172-3 Tables B.3 and C.1).
#pragma once

#include <cstdint>

namespace qav {

// The synthesis window coefficients D[i] times 65536; every one is a whole number. The analysis window C[i] is D[i] /
// 32, sign for sign.
extern const int32_t synthesisWindow65536[512];

}  // namespace qav
