#include "encoder/allocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tests/encoder/plain_allocation.h"
#include "tests/support/guarded.h"
#include "tests/support/one_in.h"
#include "tests/support/random.h"

namespace qav {
namespace {

FrameParams frameOf(int32_t hz, int32_t kbps, int32_t channels, bool check) {
  FrameParams frame = {};
  frame.id = 1;
  frame.layer = 2;
  frame.freqHz = hz;
  frame.kbps = kbps;
  frame.channels = channels;
  frame.mode = channels == 1 ? 3 : 0;
  frame.protection = check;
  neb_hdr_to_frps(&frame);
  return frame;
}

int32_t frameBits(const FrameParams &frame) { return 144000 * frame.kbps / frame.freqHz * 8; }

struct Demand {
  float smr[2][32] = {};
  uint32_t scfsi[2][32] = {};
};

class Allocation : public testing::TestWithParam<CpuLevel> {
 protected:
  void SetUp() override {
    if (GetParam() > detectCpuLevel()) GTEST_SKIP() << "this CPU is below " << cpuLevelName(GetParam());
  }

  int32_t allocate(const Demand &demand, int32_t bits, const FrameParams &frame) {
    test::Guarded<uint32_t[2][32]> output(4 * calls++);
    left = bits;
    const int32_t result = allocationFor(GetParam())(demand.smr, demand.scfsi, *output, left, planAllocation(frame));
    EXPECT_TRUE(output.isIntact());
    std::memcpy(allocation, *output, sizeof allocation);
    return result;
  }

  void expectPlain(const Demand &demand, int32_t bits, const FrameParams &frame, const std::string &where) {
    const int32_t result = allocate(demand, bits, frame);
    const test::PlainAllocation plain = test::allocatePlainly(demand.smr, demand.scfsi, bits, frame);
    ASSERT_EQ(left, plain.bitsLeft) << where;
    ASSERT_EQ(result, plain.result) << where;
    for (int32_t ch = 0; ch < 2; ++ch)
      for (int32_t sb = 0; sb < 32; ++sb) {
        const bool coded = ch < frame.channels && sb < frame.sblimit;
        ASSERT_EQ(allocation[ch][sb], coded ? plain.allocation[ch][sb] : 0x5A5A5A5Au)
            << where << ", channel " << ch << ", subband " << sb;
      }
  }

  uint32_t allocation[2][32];
  int32_t left = 0;
  size_t calls = 0;  // each at another distance from aligned addresses
};

// Values as a model gives them, and values made to collide.
Demand randomDemand(test::Random &random) {
  Demand demand;
  std::uniform_real_distribution<float> noise(-15.0f, 15.0f), slope(-4.0f, 1.0f), start(-20.0f, 60.0f);
  const uint32_t kind = random() % 8;
  for (int ch = 0; ch < 2; ++ch) {
    const float first = start(random), fall = slope(random);
    for (int sb = 0; sb < 32; ++sb) {
      float &smr = demand.smr[ch][sb];
      smr = first + fall * float(sb) + noise(random);
      if (kind == 1) smr = float(int(random() % 4)) * 5.0f;  // ties
      if (kind == 2) smr = -379.298f;                        // silence
      if (kind == 3 && random() % 3 == 0) smr = -379.298f;   // partly
      if (kind == 4) smr = float(int(smr));                  // ties with steps of whole dB
      if (kind == 5) smr = float(random() % 2 == 0 ? 7.0 : 0.0) + (sb % 2 ? 11.0f : 0.0f);
      if (kind == 6) smr = std::uniform_real_distribution<float>(-2e6f, 2e6f)(random);
      if (kind == 7 && sb < 3) smr += 200.0f;
      demand.scfsi[ch][sb] = random() % 4;
    }
  }
  if (kind == 5) std::memcpy(demand.smr[1], demand.smr[0], sizeof demand.smr[0]);
  return demand;
}

TEST_P(Allocation, EveryFrameFormatAgainstThePlainWalk) {
  constexpr unsigned kSeed = 31;
  test::Random random(kSeed);
  for (const int32_t hz : {32000, 44100, 48000})
    for (const int32_t kbps : {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384})
      for (const int32_t channels : {1, 2})
        for (const bool check : {false, true}) {
          const FrameParams frame = frameOf(hz, kbps, channels, check);
          for (uint32_t round = 0; round < 100; round += test::oneIn()) {
            const std::string where = "seed " + std::to_string(kSeed) + ", " + std::to_string(hz) + " Hz, " +
                                      std::to_string(kbps) + " kbit/s, " + std::to_string(channels) +
                                      " channels, round " + std::to_string(round);
            const int32_t bits = frameBits(frame) + 8 * int32_t(random() % 2);
            ASSERT_NO_FATAL_FAILURE(expectPlain(randomDemand(random), bits, frame, where));
          }
        }
}

// Granting all steps above a threshold at once is right only if it never differs from walking them one by one, in ties and
// refusals too. A sample of random frames by default, other millions in every full run; QAV_TEST_SEED repeats one.
TEST_P(Allocation, AnyRoomAgainstThePlainWalk) {
  const bool full = std::getenv("QAV_TEST_FULL") != nullptr;
  const char *const given = std::getenv("QAV_TEST_SEED");
  const uint32_t seed = given != nullptr ? uint32_t(std::strtoul(given, nullptr, 10))
                        : full           ? uint32_t(std::random_device()())
                                         : 32;
  const int rounds = full ? 2000000 : 20000 / int(test::oneIn());
  std::printf("seed %u, %d frames\n", seed, rounds);
  test::Random random(seed);
  for (int round = 0; round < rounds; ++round) {
    const int32_t hz[] = {32000, 44100, 48000};
    const int32_t kbps[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
    const FrameParams frame =
        frameOf(hz[random() % 3], kbps[random() % 14], 1 + int32_t(random() % 2), random() % 2 != 0);
    int32_t bits = frameBits(frame) + 8 * int32_t(random() % 2);
    if (random() % 2 == 0) bits = int32_t(random() % (random() % 4 == 0 ? 40000 : 3000)) - 100;
    ASSERT_NO_FATAL_FAILURE(expectPlain(randomDemand(random), bits, frame, "round " + std::to_string(round)))
        << "seed " << seed;
  }
}

TEST_P(Allocation, NoSubbandsLeaveAllRoom) {
  FrameParams frame = frameOf(44100, 128, 2, true);
  frame.sblimit = 0;
  EXPECT_EQ(allocate({}, 3336, frame), 0);
  EXPECT_EQ(left, 3336 - 32 - 16);
}

TEST_P(Allocation, NoChannelsLeaveAllRoom) {
  const FrameParams frame = frameOf(44100, 128, 0, false);
  EXPECT_EQ(allocate({}, 3336, frame), 0);
  EXPECT_EQ(left, 3336 - 32);
}

TEST_P(Allocation, LessThanTheSideInformationLeavesANegativeCount) {
  const FrameParams frame = frameOf(44100, 128, 2, true);
  allocate({}, 0, frame);
  EXPECT_LT(left, 0);
  for (int sb = 0; sb < frame.sblimit; ++sb) EXPECT_EQ(allocation[0][sb], 0u);
}

// The bits of side information and of one first step with 3 levels, for one channel at 32 kbit/s (8 subbands).
constexpr int32_t kSide32 = 32 + 2 * 4 + 6 * 3;
constexpr int32_t kThreeLevels = 12 * 5;

TEST_P(Allocation, AStepMayUseExactlyTheRoomLeft) {
  const FrameParams frame = frameOf(44100, 32, 1, false);
  Demand demand;
  demand.smr[0][3] = 20.0f;
  demand.scfsi[0][3] = 2;
  allocate(demand, kSide32 + kThreeLevels + 8, frame);
  EXPECT_EQ(allocation[0][3], 1u);
  EXPECT_EQ(left, 0);
  allocate(demand, kSide32 + kThreeLevels + 7, frame);
  EXPECT_EQ(allocation[0][3], 0u);
  EXPECT_EQ(left, kThreeLevels + 7);
}

TEST_P(Allocation, SelectionInformationSetsThePriceOfTheFirstStep) {
  const FrameParams frame = frameOf(44100, 32, 1, false);
  const int32_t price[4] = {20, 14, 8, 14};
  for (uint32_t selection = 0; selection < 4; ++selection) {
    Demand demand;
    std::fill_n(demand.smr[0], 32, -1e6f);  // never offered anything
    demand.smr[0][3] = 20.0f;
    demand.scfsi[0][3] = selection;
    const int32_t room = kThreeLevels + price[selection];
    allocate(demand, kSide32 + room, frame);
    EXPECT_EQ(left, 0);
    allocate(demand, kSide32 + room - 1, frame);
    EXPECT_EQ(left, room - 1);
  }
}

TEST_P(Allocation, EqualValuesGoToTheLowerSubbandAndToChannel0First) {
  const FrameParams frame = frameOf(44100, 64, 2, false);
  ASSERT_EQ(frame.sblimit, 8);
  Demand demand;  // all values equal
  const int32_t side = 32 + 2 * (2 * 4 + 6 * 3), step = kThreeLevels + 20;
  allocate(demand, side + 3 * step, frame);
  EXPECT_EQ(allocation[0][0], 1u);
  EXPECT_EQ(allocation[1][0], 1u);
  EXPECT_EQ(allocation[0][1], 1u);
  EXPECT_EQ(allocation[1][1], 0u);
}

TEST_P(Allocation, ARefusedSubbandStaysClosed) {
  // Subband 0 asks for a step that does not fit; subband 5 takes a cheaper one; then nothing more fits.
  const FrameParams frame = frameOf(44100, 32, 1, false);
  Demand demand;
  std::fill_n(demand.smr[0], 32, -1e6f);
  demand.smr[0][0] = 50.0f;  // selection 0: 80 bits
  demand.smr[0][5] = 10.0f;
  demand.scfsi[0][5] = 2;  // 68 bits
  allocate(demand, kSide32 + 79, frame);
  EXPECT_EQ(allocation[0][0], 0u);
  EXPECT_EQ(allocation[0][5], 1u);
  EXPECT_EQ(left, 11);
}

TEST_P(Allocation, TheResultIsNeverPositive) {
  constexpr unsigned kSeed = 33;
  test::Random random(kSeed);
  const FrameParams frame = frameOf(48000, 192, 2, true);
  for (int round = 0; round < 200; ++round) EXPECT_LE(allocate(randomDemand(random), frameBits(frame), frame), 0);
}

INSTANTIATE_TEST_SUITE_P(Levels, Allocation, testing::ValuesIn(kCpuLevels),
                         [](const testing::TestParamInfo<CpuLevel> &level) { return cpuLevelName(level.param); });

}  // namespace
}  // namespace qav
