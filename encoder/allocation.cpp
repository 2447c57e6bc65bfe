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

constexpr int32_t kHeaderBits = 32;
constexpr int32_t kCheckBits = 16;
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// A subband whose noise-to-mask ratio is not above this is offered no step.
constexpr float kNoDemand = -999999.0f;

// Bits of selection information and scale factors: 20, 14, 8, 14 for selections 0, 1, 2, 3.
NEB_INLINE int32_t sideBitsOf(uint32_t scfsi) {
  const int32_t d = int32_t(scfsi & 3) - 2;
  return 8 + 6 * (d < 0 ? -d : d);
}

// What a frame asks for. Where there is no such channel or subband, the ratio is minus infinity.
struct Demand {
  float smr[2][32];
  int32_t firstBits[2][32];  // of a subband's first step, side information included
  float highest;
};

// What every subband has been given, and the step that it would be given next.
struct Offers {
  uint32_t steps[2][32];
  float value[2][32];   // noise-to-mask ratio now
  int32_t bits[2][32];  // of the next step, or kNoStep
};

// Calls visit(ch, sb) for every group of N subbands, in the order in which equal values come.
template <int N, typename Visit>
NEB_INLINE void forGroups(const AllocationPlan &plan, Visit visit) {
  for (int32_t sb = 0; sb < plan.sblimit; sb += N)
    for (int32_t ch = 0; ch < plan.channels; ++ch) visit(ch, sb);
}

// Whether step b of any of the N subbands from `sb` on may be above the threshold.
NEB_INLINE bool anyAbove(float threshold, const Demand &demand, const AllocationPlan &plan, int32_t sb, int32_t b) {
  return b < plan.steps[sb] && demand.highest - plan.leastSnr[b] > threshold;
}

// The value of a step is the noise-to-mask ratio before it. Values fall from step to step of a subband, so the order of the
// steps is the order of their values, until a step is refused; and while all steps above some threshold fit into the frame,
// they can be granted at once.
//
// The bits of all steps above `threshold`.
template <int N>
NEB_INLINE int32_t bitsAbove(float threshold, const Demand &demand, const AllocationPlan &plan) {
  using Floats = Lanes<float, N>;
  using Ints = Lanes<int32_t, N>;
  Ints bits{};
  forGroups<N>(
      plan, [&](int32_t ch, int32_t sb) __attribute__((always_inline)) {
        const Floats smr = loadLanes<Floats>(demand.smr[ch] + sb);
        // A comparison that holds is -1.
        bits += loadLanes<Ints>(demand.firstBits[ch] + sb) & (smr > threshold);
        for (int32_t b = 1; anyAbove(threshold, demand, plan, sb, b); ++b)
          bits += loadLanes<Ints>(plan.stepBits[b] + sb) & (smr - loadLanes<Floats>(plan.stepSnr[b] + sb) > threshold);
      });
  int32_t lanes[N], total = 0;
  storeLanes(lanes, bits);
  for (const int32_t lane : lanes) total += lane;
  return total;
}

// Grants all steps above `threshold`.
template <int N>
NEB_INLINE void grantAbove(float threshold, const Demand &demand, const AllocationPlan &plan, Offers &offers) {
  using Floats = Lanes<float, N>;
  using Ints = Lanes<int32_t, N>;
  forGroups<N>(
      plan, [&](int32_t ch, int32_t sb) __attribute__((always_inline)) {
        const Floats smr = loadLanes<Floats>(demand.smr[ch] + sb);
        Floats value = smr;
        Ints bits = loadLanes<Ints>(demand.firstBits[ch] + sb);
        Ints steps{};
        for (int32_t b = 0; anyAbove(threshold, demand, plan, sb, b); ++b) {
          const Ints granted = smr - loadLanes<Floats>(plan.stepSnr[b] + sb) > threshold;
          steps -= granted;
          value = granted ? smr - loadLanes<Floats>(plan.snrAfter[b + 1] + sb) : value;
          bits = granted ? loadLanes<Ints>(plan.stepBits[b + 1] + sb) : bits;
        }
        storeLanes(offers.steps[ch] + sb, steps);
        storeLanes(offers.value[ch] + sb, value);
        storeLanes(offers.bits[ch] + sb, bits);
      });
}

// A threshold above which all steps fit into `room`. How near it comes to the lowest one changes nothing but the work that
// is left.
template <int N>
NEB_INLINE float findThreshold(const Demand &demand, const AllocationPlan &plan, int32_t room) {
  constexpr int kHalvings = 8;
  float fits = demand.highest;  // no value is above it
  float tooLow = fits;
  for (float reach = 64.0f; fits > kNoDemand && tooLow == fits; reach *= 4) {
    tooLow = std::max(demand.highest - reach, kNoDemand);
    if (bitsAbove<N>(tooLow, demand, plan) <= room) fits = tooLow;
  }
  for (int i = 0; i < kHalvings && tooLow < fits; ++i) {
    const float middle = tooLow + (fits - tooLow) * 0.5f;
    (bitsAbove<N>(middle, demand, plan) <= room ? fits : tooLow) = middle;
  }
  return fits;
}

// The subband that is offered the next step: the one of the largest value, and of equal ones the lowest, channel 0 first.
struct Choice {
  float value;
  int32_t place;  // 2 sb + ch; kNone when no subband can be given anything
};

constexpr int32_t kNone = 64;

// A refused subband is offered nothing more, and room only shrinks: so a subband whose next step does not fit can be passed
// over at once.
template <int N>
NEB_INLINE Choice chooseNext(const Offers &offers, const AllocationPlan &plan, int32_t room) {
  using Floats = Lanes<float, N>;
  using Ints = Lanes<int32_t, N>;
  Floats value = Floats{} + kNoDemand;
  Ints place = Ints{} + kNone;
  Ints twice;
  for (int32_t i = 0; i < N; ++i) twice[i] = 2 * i;
  forGroups<N>(
      plan, [&](int32_t ch, int32_t sb) __attribute__((always_inline)) {
        const Floats offered = loadLanes<Floats>(offers.value[ch] + sb);
        const Ints better = (offered > value) & (loadLanes<Ints>(offers.bits[ch] + sb) <= room);
        value = better ? offered : value;
        place = better ? twice + (2 * sb + ch) : place;
      });
  float values[N];
  int32_t places[N];
  storeLanes(values, value);
  storeLanes(places, place);
  Choice best = {values[0], places[0]};
  for (int i = 1; i < N; ++i)
    if (values[i] > best.value || (values[i] == best.value && places[i] < best.place)) best = {values[i], places[i]};
  return best;
}

template <int N>
NEB_INLINE int32_t allocationBody(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                                  int32_t &bitsAvailable, const AllocationPlan &plan) {
  Demand demand;
  demand.highest = -kInfinity;
  for (int32_t ch = 0; ch < plan.channels; ++ch) {
    for (int32_t sb = 0; sb < 32; ++sb) {
      demand.smr[ch][sb] = -kInfinity;
      demand.firstBits[ch][sb] = kNoStep;
    }
    for (int32_t sb = 0; sb < plan.sblimit; ++sb) {
      demand.smr[ch][sb] = smr[ch][sb];
      demand.firstBits[ch][sb] = plan.stepBits[0][sb] + sideBitsOf(scfsi[ch][sb]);
      demand.highest = std::max(demand.highest, smr[ch][sb]);
    }
  }

  int32_t room = bitsAvailable - plan.sideBits;
  const float threshold = room > 0 ? findThreshold<N>(demand, plan, room) : demand.highest;
  Offers offers;
  grantAbove<N>(threshold, demand, plan, offers);
  room -= bitsAbove<N>(threshold, demand, plan);

  // The few steps that are left, one by one.
  for (;;) {
    const int32_t place = chooseNext<N>(offers, plan, room).place;
    if (place == kNone) break;
    const int32_t ch = place % 2, sb = place / 2;
    room -= offers.bits[ch][sb];
    const uint32_t steps = ++offers.steps[ch][sb];
    offers.value[ch][sb] = demand.smr[ch][sb] - plan.snrAfter[steps][sb];
    offers.bits[ch][sb] = plan.stepBits[steps][sb];
  }

  int32_t masked = 0;
  for (int32_t ch = 0; ch < plan.channels; ++ch)
    for (int32_t sb = 0; sb < plan.sblimit; ++sb) {
      allocation[ch][sb] = offers.steps[ch][sb];
      masked += std::signbit(offers.value[ch][sb]);
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
#endif

}  // namespace

AllocationPlan planAllocation(const FrameParams &frame) {
  AllocationPlan plan = {};
  plan.channels = codedChannels(frame);
  plan.sblimit = frame.sblimit;
  plan.sideBits = kHeaderBits + (frame.protection != 0 ? kCheckBits : 0);
  std::fill_n(plan.leastSnr, kMaxSteps + 1, kInfinity);
  std::fill_n(plan.stepSnr[0], (kMaxSteps + 1) * 32, kInfinity);
  std::fill_n(plan.stepBits[0], (kMaxSteps + 1) * 32, kNoStep);
  for (int32_t sb = 0; sb < frame.sblimit; ++sb) {
    const AllocEntry *const row = frame.allocTable[sb];
    plan.sideBits += row[0].bits * plan.channels;
    plan.steps[sb] = (1 << row[0].bits) - 1;
    int32_t bitsBefore = 0;
    for (int32_t b = 0; b < plan.steps[sb]; ++b) {
      plan.snrAfter[b][sb] = b == 0 ? 0.0f : snr[row[b].quant + 1];
      plan.stepSnr[b][sb] = plan.snrAfter[b][sb];
      plan.leastSnr[b] = std::min(plan.leastSnr[b], plan.snrAfter[b][sb]);
      const int32_t bits = int32_t(kGranules) * row[b + 1].group * row[b + 1].bits;
      plan.stepBits[b][sb] = bits - bitsBefore;
      bitsBefore = bits;
    }
    plan.snrAfter[plan.steps[sb]][sb] = snr[row[plan.steps[sb]].quant + 1];
  }
  return plan;
}

AllocationFn allocationFor(CpuLevel level) {
#ifdef NEB_TARGET
  if (level >= CpuLevel::Avx2) return allocationAvx2;
#endif
  static_cast<void>(level);
  return II_a_bit_allocation;
}

int32_t II_a_bit_allocation(const float smr[2][32], const uint32_t scfsi[2][32], uint32_t allocation[2][32],
                            int32_t &bitsAvailable, const AllocationPlan &plan) {
  return allocationBody<4>(smr, scfsi, allocation, bitsAvailable, plan);
}

}  // namespace qav
