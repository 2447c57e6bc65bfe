// The state of the synthesis filterbank (ISO/IEC 11172-3 clause 2.4.3.2.2) of one channel.
//
// The standard's vector V holds, for each block of 32 subband samples, 64 values V[i] = sum of cos((16 + i)(2k + 1) pi /
// 64) S[k]. They are but 32 different ones and their negatives: the transform X[m] = sum of cos(m (2k + 1) pi / 64) S[k].
// Here a block is one row of 64 values in the order X[32], X[31], .. X[1], X[0], X[1], .. X[31], where X[32] is 0; signs
// are left to the window.
#pragma once

#include <cstdint>

#include "decoder/subband_samples.h"

namespace qav {

inline constexpr int32_t kHistoryRows = 15;
inline constexpr int32_t kRow = 64;

struct SynthesisHistory {
  // First the blocks before this frame, oldest first, then this frame's, then a row where vectors leave what is of no
  // meaning. The first value of each row stays 0.
  alignas(64) float row[kHistoryRows + kMaxBlocks + 1][kRow];

  // Makes what lies before the end of the frame's first `blocks` blocks the past of the next frame.
  void advance(int32_t blocks);
};

}  // namespace qav
