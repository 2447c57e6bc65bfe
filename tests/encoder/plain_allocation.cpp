#include "tests/encoder/plain_allocation.h"

#include <cmath>

namespace qav::test {

PlainAllocation allocatePlainly(const float smr[2][32], const uint32_t scfsi[2][32], int32_t bitsAvailable,
                                const FrameParams &frame) {
  const float snr[18] = {0.0f,   7.0f,   11.0f,  16.0f,  20.84f, 25.28f, 31.59f, 37.75f, 43.84f,
                         49.89f, 55.93f, 61.96f, 67.98f, 74.01f, 80.03f, 86.05f, 92.01f, 98.01f};
  const int32_t sideBits[4] = {20, 14, 8, 14};
  enum { Unallocated, Open, Closed } state[2][32] = {};

  PlainAllocation out = {};
  float noiseToMask[2][32];
  int32_t room = bitsAvailable - 32 - (frame.protection != 0 ? 16 : 0);
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) {
      room -= frame.allocTable[sb][0].bits;
      noiseToMask[ch][sb] = smr[ch][sb];
    }

  int32_t used = 0;
  for (;;) {
    float highest = -999999.0f;
    int32_t bestCh = -1, bestSb = -1;
    for (int32_t sb = 0; sb < frame.sblimit; ++sb)
      for (int32_t ch = 0; ch < frame.channels; ++ch)
        if (state[ch][sb] != Closed && noiseToMask[ch][sb] > highest) {
          highest = noiseToMask[ch][sb];
          bestCh = ch;
          bestSb = sb;
        }
    if (bestCh < 0) break;

    const AllocEntry *const row = frame.allocTable[bestSb];
    uint32_t &b = out.allocation[bestCh][bestSb];
    int32_t cost = 12 * row[b + 1].group * row[b + 1].bits;
    if (state[bestCh][bestSb] == Unallocated)
      cost += sideBits[scfsi[bestCh][bestSb]];
    else
      cost -= 12 * row[b].group * row[b].bits;
    state[bestCh][bestSb] = Closed;
    if (used + cost > room) continue;
    used += cost;
    ++b;
    noiseToMask[bestCh][bestSb] = smr[bestCh][bestSb] - snr[row[b].quant + 1];
    if (b < (1u << row[0].bits) - 1) state[bestCh][bestSb] = Open;
  }

  out.bitsLeft = room - used;
  for (int32_t sb = 0; sb < frame.sblimit; ++sb)
    for (int32_t ch = 0; ch < frame.channels; ++ch) out.result -= std::signbit(noiseToMask[ch][sb]);
  return out;
}

}  // namespace qav::test
