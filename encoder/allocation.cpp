#include "encoder/allocation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/attributes.h"
#include "base/lanes.h"
#include "encoder/coded_channels.h"
#include "encoder/frame_shapes.h"

namespace qav {
namespace {

// Signal-to-noise ratio in dB by quantisation class + 1 (ISO/IEC 11172-3 Table C.5); entry 0: nothing is sent.
constexpr float snr[18] = {0.0f,   7.0f,   11.0f,  16.0f,  20.84f, 25.28f, 31.59f, 37.75f, 43.84f,
                           49.89f, 55.93f, 61.96f, 67.98f, 74.01f, 80.03f, 86.05f, 92.01f, 98.01f};

// Bits of selection information and scale factors, by selection information.
constexpr int32_t sfsPerScfsi[4] = {20, 14, 8, 14};

constexpr int32_t kHeaderBits = 32;
constexpr int32_t kCheckBits = 16;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// A subband whose noise-to-mask ratio is not above this is offered no step.
constexpr float kNoDemand = -999999.0f;

// What a frame asks for. Where there is no such channel or subband, the ratio is minus infinity.
struct Demand {
  float smr[2][32];
  int32_t firstBits[2][32];  // of a subband's first step, side information included
  float highest;
};

// The value of a step is the noise-to-mask ratio before it. Values fall from step to step of a subband, so the order of
// the steps is the order of their values, until a step is refused; and while all steps above some threshold fit into the
// frame, they can be granted at once.
//
// The bits of all steps above `threshold`; counts them per subband.
template <int N>
NEB_INLINE int32_t stepsAbove(float threshold, const Demand &demand, const AllocationPlan &plan,
                              uint32_t allocation[2][32]) {
  using Floats = Lanes<float, N>;
  using Ints = Lanes<int32_t, N>;
  Ints bits{};
  for (int32_t ch = 0; ch < plan.channels; ++ch)
    for (int32_t sb = 0; sb < plan.sblimit; sb += N) {
      const Floats smr = loadLanes<Floats>(demand.smr[ch] + sb);
      Ints granted = smr > threshold;  // a comparison that holds is -1
      Ints count = -granted;
      bits += loadLanes<Ints>(demand.firstBits[ch] + sb) & granted;
      for (uint32_t b = 1; b < uint32_t(plan.steps[sb]) && demand.highest - plan.leastSnr[b] > threshold; ++b) {
        granted = smr - loadLanes<Floats>(plan.snrBefore[b] + sb) > threshold;
        count -= granted;
        bits += loadLanes<Ints>(plan.stepBits[b] + sb) & granted;
      }
      // What comes after the last step of a subband costs nothing, but may have been counted.
      const Ints most = loadLanes<Ints>(plan.steps + sb);
      storeLanes(allocation[ch] + sb, count < most ? count : most);
    }
  int32_t lanes[N], total = 0;
  storeLanes(lanes, bits);
  for (const int32_t lane : lanes) total += lane;
  return total;
}

// Finds a threshold above which all steps fit, grants them, and takes their bits from `room`. How near it comes to the
// lowest such threshold changes nothing but the work that is left.
template <int N>
NEB_INLINE void grantAtOnce(const Demand &demand, const AllocationPlan &plan, uint32_t allocation[2][32],
                            int32_t &room) {
  constexpr int kHalvings = 9;
  float fits = demand.highest;  // no value is above it
  float tooLow = fits;
  for (float reach = 64.0f; fits > kNoDemand && tooLow == fits; reach *= 4) {
    tooLow = std::max(demand.highest - reach, kNoDemand);
    if (stepsAbove<N>(tooLow, demand, plan, allocation) <= room) fits = tooLow;
  }
  for (int i = 0; i < kHalvings && tooLow < fits; ++i) {
    const float middle = tooLow + (fits - tooLow) * 0.5f;
    (stepsAbove<N>(middle, demand, plan, allocation) <= room ? fits : tooLow) = middle;
  }
  room -= stepsAbove<N>(fits, demand, plan, allocation);
}

// A subband that is still offered steps, and the next one.
struct Candidate {
  float value;
  int32_t bits;
  uint32_t ch, sb;
};

// Offers the remaining steps one by one. A refused subband is not offered another one, and room only shrinks: so subbands
// whose next step does not fit can be dropped before it is their turn.
void grantOneByOne(const Demand &demand, const AllocationPlan &plan, uint32_t allocation[2][32],
                   float noiseToMask[2][32], int32_t &room) {
  Candidate candidates[64];
  uint32_t count = 0;
  // In the order in which equal values come: by subband, channel 0 first.
  for (uint32_t sb = 0; sb < uint32_t(plan.sblimit); ++sb)
    for (uint32_t ch = 0; ch < uint32_t(plan.channels); ++ch) {
      const uint32_t steps = allocation[ch][sb];
      noiseToMask[ch][sb] = demand.smr[ch][sb] - plan.snrBefore[steps][sb];
      const int32_t bits = steps == 0 ? demand.firstBits[ch][sb] : plan.stepBits[steps][sb];
      candidates[count] = {noiseToMask[ch][sb], bits, ch, sb};
      if (steps < uint32_t(plan.steps[sb]) && bits <= room) ++count;
    }

  while (count != 0) {
    float best = kNoDemand;
    uint32_t kept = 0, chosen = 64;
    for (uint32_t i = 0; i < count; ++i) {
      if (candidates[i].bits > room) continue;
      candidates[kept] = candidates[i];
      if (candidates[kept].value > best) {
        best = candidates[kept].value;
        chosen = kept;
      }
      ++kept;
    }
    count = kept;
    if (chosen == 64) break;

    Candidate &c = candidates[chosen];
    room -= c.bits;
    const uint32_t steps = ++allocation[c.ch][c.sb];
    c.value = demand.smr[c.ch][c.sb] - plan.snrBefore[steps][c.sb];
    noiseToMask[c.ch][c.sb] = c.value;
    c.bits = steps < uint32_t(plan.steps[c.sb]) ? plan.stepBits[steps][c.sb] : INT32_MAX;
  }
}

template <int N>
NEB_INLINE int32_t allocationBody(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                                  int32_t &bitsAvailable, const AllocationPlan &plan) {
  Demand demand;
  demand.highest = -kInfinity;
  for (int32_t ch = 0; ch < plan.channels; ++ch)
    for (int32_t sb = 0; sb < 32; ++sb) {
      const bool inUse = sb < plan.sblimit;
      demand.smr[ch][sb] = inUse ? smr[ch][sb] : -kInfinity;
      demand.firstBits[ch][sb] = inUse ? plan.stepBits[0][sb] + sfsPerScfsi[scfsi[ch][sb] & 3] : 0;
      demand.highest = std::max(demand.highest, demand.smr[ch][sb]);
    }

  int32_t room = bitsAvailable - plan.sideBits;
  uint32_t granted[2][32] = {};
  float noiseToMask[2][32];
  if (room > 0) grantAtOnce<N>(demand, plan, granted, room);
  grantOneByOne(demand, plan, granted, noiseToMask, room);

  int32_t masked = 0;
  for (int32_t ch = 0; ch < plan.channels; ++ch)
    for (int32_t sb = 0; sb < plan.sblimit; ++sb) {
      allocation[ch][sb] = granted[ch][sb];
      masked += std::signbit(noiseToMask[ch][sb]);
    }
  bitsAvailable = room;
  return -masked;
}

#ifdef NEB_TARGET
NEB_TARGET("avx2")
int32_t allocationAvx2(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                       int32_t &bitsAvailable, const AllocationPlan &plan) {
  return allocationBody<8>(smr, scfsi, allocation, bitsAvailable, plan);
}

NEB_TARGET("avx512f,avx512bw,avx512dq,avx512vl")
int32_t allocationAvx512(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                         int32_t &bitsAvailable, const AllocationPlan &plan) {
  return allocationBody<16>(smr, scfsi, allocation, bitsAvailable, plan);
}
#endif

}  // namespace

AllocationPlan planAllocation(const FrameParams &frame) {
  AllocationPlan plan = {};
  plan.channels = codedChannels(frame);
  plan.sblimit = frame.sblimit;
  plan.sideBits = kHeaderBits + (frame.protection != 0 ? kCheckBits : 0);
  std::fill_n(plan.leastSnr, kMaxSteps, kInfinity);
  for (auto &row : plan.snrBefore) std::fill_n(row, 32, kInfinity);
  for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
    const AllocEntry *const row = frame.allocTable[sb];
    plan.sideBits += row[0].bits * plan.channels;
    plan.steps[sb] = (1 << row[0].bits) - 1;
    int32_t bitsBefore = 0;
    const auto steps = uint32_t(plan.steps[sb]);
    for (uint32_t b = 0; b <= steps; ++b) {
      plan.snrBefore[b][sb] = b == 0 ? 0.0f : snr[row[b].quant + 1];
      if (b == steps) break;
      plan.leastSnr[b] = std::min(plan.leastSnr[b], plan.snrBefore[b][sb]);
      const int32_t bits = int32_t(kGranules) * row[b + 1].group * row[b + 1].bits;
      plan.stepBits[b][sb] = bits - bitsBefore;
      bitsBefore = bits;
    }
  }
  return plan;
}

AllocationFn allocationFor(CpuLevel level) {
#ifdef NEB_TARGET
  if (level == CpuLevel::Avx512) return allocationAvx512;
  if (level == CpuLevel::Avx2) return allocationAvx2;
#endif
  static_cast<void>(level);
  return II_a_bit_allocation;
}

int32_t II_a_bit_allocation(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                            int32_t &bitsAvailable, const AllocationPlan &plan) {
  return allocationBody<4>(smr, scfsi, allocation, bitsAvailable, plan);
}

}  // namespace qav
