#include "stream/freq_change.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

struct TermRate {
  void operator()(FreqChangeState *s) const { NEB_freqChangeTerm(s); }
};
using RatePtr = std::unique_ptr<FreqChangeState, TermRate>;

RatePtr makeRate(uint32_t inHz, uint32_t outHz, uint32_t channels, uint32_t totalFrames = 0) {
  FreqChangeState *s = nullptr;
  EXPECT_EQ(NEB_freqChangeInit(&s, inHz, outHz, channels, totalFrames), 0);
  return RatePtr(s);
}

// Converts one block. Input and output are heap blocks of exactly the sizes that are promised, so that a sanitizer sees
// every step beyond them.
Samples convert(FreqChangeState *s, const int16_t *in, uint32_t frames, uint32_t channels) {
  const Samples block(in, in + size_t(frames) * channels);
  const size_t room = size_t(std::ceil(frames / s->step)) + 2;
  Samples out(room * channels);
  uint32_t outFrames = 0xDEAD;
  EXPECT_EQ(NEB_freqChange(s, block.data(), frames, out.data(), &outFrames), 0);
  EXPECT_LE(outFrames, room);
  out.resize(size_t(outFrames) * channels);
  return out;
}

Samples noise(size_t n, unsigned seed) {
  std::mt19937 random(seed);
  Samples samples(n);
  for (int16_t &v : samples) v = random() % 8 == 0 ? int16_t(random() % 2 ? 32767 : -32768) : int16_t(random());
  return samples;
}

// A whole stream of unknown length by the definition, one value at a time.
Samples wholeStream(const Samples &in, uint32_t inHz, uint32_t outHz, uint32_t channels) {
  const size_t frames = in.size() / channels;
  const double step = double(inHz) / double(outHz);
  Samples out;
  for (uint64_t j = 0;; ++j) {
    const double x = double(j) * step;
    const auto i = size_t(x);
    if (i + 1 >= frames) return out;
    const double f = x - double(i);
    for (uint32_t ch = 0; ch < channels; ++ch) {
      const double y = (1.0 - f) * in[i * channels + ch] + f * in[(i + 1) * channels + ch];
      out.push_back(int16_t(int32_t(y >= 0 ? y + 0.5 : y - 0.5)));
    }
  }
}

Samples inBlocks(const Samples &in, uint32_t inHz, uint32_t outHz, uint32_t channels,
                 const std::function<uint32_t()> &blockFrames, uint32_t totalFrames = 0) {
  const RatePtr s = makeRate(inHz, outHz, channels, totalFrames);
  const uint32_t frames = uint32_t(in.size() / channels);
  Samples out;
  for (uint32_t at = 0; at < frames;) {
    const uint32_t n = std::min(blockFrames(), frames - at);
    const Samples part = convert(s.get(), in.data() + size_t(at) * channels, n, channels);
    out.insert(out.end(), part.begin(), part.end());
    at += n;
  }
  return out;
}

struct Rates {
  uint32_t in, out;
};
const Rates kRates[] = {{44100, 48000},  {48000, 44100}, {8000, 48000}, {48000, 8000}, {32000, 48000}, {2000, 48000},
                        {192000, 48000}, {44100, 44100}, {3, 7},        {7, 3},        {1, 1000},      {1000, 1}};

TEST(FreqChange, FollowsTheDefinition) {
  for (const uint32_t channels : {1u, 2u})
    for (const Rates &r : kRates) {
      const Samples in = noise(4000, r.in + r.out + channels);
      EXPECT_EQ(inBlocks(in, r.in, r.out, channels, [] { return 1u << 20; }), wholeStream(in, r.in, r.out, channels))
          << r.in << " to " << r.out << " Hz, " << channels << " channels";
    }
}

TEST(FreqChange, LiesWithinHalfAStepOfTheExactLine) {
  for (const Rates &r : kRates) {
    const Samples in = noise(4000, r.in * 3 + r.out);
    const Samples out = inBlocks(in, r.in, r.out, 1, [] { return 1u << 20; });
    for (size_t j = 0; j < out.size(); ++j) {
      const uint64_t position = uint64_t(j) * r.in;
      const auto i = size_t(position / r.out);
      const long double f = static_cast<long double>(position % r.out) / r.out;
      const long double y = (1 - f) * in[i] + f * in[i + 1];
      ASSERT_LE(std::abs(y - out[j]), 0.5L + 1e-9L) << r.in << " to " << r.out << " Hz, frame " << j;
    }
  }
}

TEST(FreqChange, CutsDoNotShow) {
  std::mt19937 random(7);
  for (const uint32_t channels : {1u, 2u})
    for (const Rates &r : kRates) {
      const Samples in = noise(1200, r.in - r.out + channels);
      const Samples whole = inBlocks(in, r.in, r.out, channels, [] { return 1u << 20; });
      for (const uint32_t size : {1u, 2u, 3u, 4u, 5u, 63u, 64u, 576u})
        EXPECT_EQ(inBlocks(in, r.in, r.out, channels, [=] { return size; }), whole) << "blocks of " << size;
      for (int round = 0; round < 20; ++round)
        EXPECT_EQ(inBlocks(in, r.in, r.out, channels, [&] { return uint32_t(random() % 9); }), whole)
            << "random blocks, empty ones among them";
    }
}

TEST(FreqChange, AtEqualRatesTheLastFrameWaits) {
  const RatePtr s = makeRate(48000, 48000, 2);
  const Samples in = noise(400, 1);
  const Samples first = convert(s.get(), in.data(), 100, 2), second = convert(s.get(), in.data() + 200, 100, 2);
  EXPECT_EQ(first, Samples(in.begin(), in.begin() + 198));
  EXPECT_EQ(second, Samples(in.begin() + 198, in.begin() + 398));
}

TEST(FreqChange, FirstFramesOf44100To48000) {
  const Samples in = {1000, -2000, 3000, 4000, 0, 0};
  const Samples out = convert(makeRate(44100, 48000, 2).get(), in.data(), 3, 2);
  ASSERT_GE(out.size(), 4u);
  EXPECT_EQ(out[0], 1000);
  EXPECT_EQ(out[1], -2000);
  EXPECT_EQ(out[2], 2838);  // 0.08125 * 1000 + 0.91875 * 3000 = 2837.5
  EXPECT_EQ(out[3], 3513);  // 0.08125 * -2000 + 0.91875 * 4000 = 3512.5
}

TEST(FreqChange, HalvesAreRoundedAwayFromZero) {
  const Samples in = {-1, 0, 1, 32767, 32766, -32768, -32767};
  EXPECT_EQ(convert(makeRate(1, 2, 1).get(), in.data(), 7, 1),
            (Samples{-1, -1, 0, 1, 1, 16384, 32767, 32767, 32766, -1, -32768, -32768}));
}

TEST(FreqChange, AnyCountButTwoIsOneChannel) {
  const Samples in = noise(200, 3);
  const Samples mono = convert(makeRate(3, 4, 1).get(), in.data(), 200, 1);
  for (const uint32_t channels : {0u, 3u, 0xFFFFFFFFu})
    EXPECT_EQ(convert(makeRate(3, 4, channels).get(), in.data(), 200, 1), mono);
}

TEST(FreqChange, EmptyBlockIsNotRead) {
  const RatePtr s = makeRate(44100, 48000, 2);
  uint32_t frames = 7;
  EXPECT_EQ(NEB_freqChange(s.get(), nullptr, 0, nullptr, &frames), 0);
  EXPECT_EQ(frames, 0u);
  const Samples in = noise(200, 5);
  const Samples first = convert(s.get(), in.data(), 50, 2);
  NEB_freqChange(s.get(), nullptr, 0, nullptr, &frames);
  const Samples second = convert(s.get(), in.data() + 100, 50, 2);
  Samples both = first;
  both.insert(both.end(), second.begin(), second.end());
  EXPECT_EQ(both, wholeStream(in, 44100, 48000, 2));
}

TEST(FreqChange, LastFrameOfAStreamOfKnownLengthIsCopied) {
  std::mt19937 random(11);
  for (const uint32_t channels : {1u, 2u})
    for (const Rates &r : kRates)
      for (const uint32_t frames : {1u, 2u, 5u, 300u}) {
        const Samples in = noise(size_t(frames) * channels, frames + r.in);
        Samples expected = wholeStream(in, r.in, r.out, channels);
        expected.insert(expected.end(), in.end() - channels, in.end());
        EXPECT_EQ(inBlocks(
                      in, r.in, r.out, channels, [] { return 1u << 20; }, frames),
                  expected)
            << r.in << " to " << r.out << " Hz, " << frames << " frames, " << channels << " channels";
        EXPECT_EQ(inBlocks(
                      in, r.in, r.out, channels, [] { return 1u; }, frames),
                  expected);
        EXPECT_EQ(inBlocks(
                      in, r.in, r.out, channels, [&] { return 1 + uint32_t(random() % 7); }, frames),
                  expected);
      }
}

TEST(FreqChange, AfterTheEndTheLastFrameIsCopiedWhileItIsAtHand) {
  const Samples in = noise(40, 9);
  for (const uint32_t channels : {1u, 2u}) {
    const uint32_t kept = 4 / channels;
    const RatePtr s = makeRate(1, 1, channels, 10);
    const Samples last(in.begin() + 9 * channels, in.begin() + 10 * channels);
    EXPECT_EQ(convert(s.get(), in.data(), 10, channels).size(), 10u * channels);
    for (uint32_t i = 0; i < kept; ++i) EXPECT_EQ(convert(s.get(), in.data(), 1, channels), last) << i;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(convert(s.get(), in.data(), 1, channels).empty());
    EXPECT_TRUE(convert(s.get(), in.data(), 20, channels).empty());
  }
}

TEST(FreqChange, ARateOfZeroGivesNothing) {
  const Samples in = noise(100, 13);
  Samples out(100, 77);
  for (const Rates &r : {Rates{44100, 0}, Rates{0, 44100}, Rates{0, 0}})
    for (const uint32_t totalFrames : {0u, 1u, 150u}) {
      const RatePtr s = makeRate(r.in, r.out, 1, totalFrames);
      for (int i = 0; i < 2; ++i) {
        uint32_t frames = 9;
        EXPECT_EQ(NEB_freqChange(s.get(), in.data(), 100, out.data(), &frames), 0);
        EXPECT_EQ(frames, 0u);
      }
    }
  EXPECT_EQ(out, Samples(100, 77));
}

TEST(FreqChange, GreatestRatioOfRates) {
  const RatePtr s = makeRate(0xFFFFFFFF, 1, 1);
  const Samples in = noise(100, 15);
  Samples out(4);
  uint32_t frames = 0;
  NEB_freqChange(s.get(), in.data(), 100, out.data(), &frames);
  EXPECT_EQ(frames, 1u);
  EXPECT_EQ(out[0], in[0]);
  NEB_freqChange(s.get(), in.data(), 100, out.data(), &frames);
  EXPECT_EQ(frames, 0u);
}

#if SIZE_MAX > 0xFFFFFFFF
// Blocks whose positions do not fit 31 bits, and runs that are cut for it.
TEST(FreqChange, BlocksOfGigabytes) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "memory that is hardly touched is free, but not its shadow";
#endif
  constexpr size_t kFrames = (size_t(1) << 32) - 1;
  const std::unique_ptr<int16_t, decltype(&std::free)> in(static_cast<int16_t *>(std::calloc(kFrames, 2)), &std::free);
  if (in == nullptr) GTEST_SKIP() << "no such memory here";
  constexpr uint32_t kStep = 100'000'000;
  Samples expected;
  for (size_t i = 0; i < kFrames; i += kStep) {
    in.get()[i] = int16_t(1000 + i / kStep);
    expected.push_back(in.get()[i]);
  }
  const RatePtr s = makeRate(kStep, 1, 1, uint32_t(kFrames));
  Samples out(100);
  uint32_t frames = 0;
  in.get()[kFrames - 1] = -7;
  expected.push_back(-7);
  EXPECT_EQ(NEB_freqChange(s.get(), in.get(), uint32_t(kFrames), out.data(), &frames), 0);
  out.resize(frames);
  EXPECT_EQ(out, expected);
}
#endif

// Positions beyond 2^32: the state is set as after a day of input.
TEST(FreqChange, LongStreamsGoOn) {
  const Samples in = noise(2000, 17);
  for (const Rates &r : {Rates{44100, 48000}, Rates{48000, 44100}, Rates{2000, 48000}}) {
    const RatePtr s = makeRate(r.in, r.out, 1);
    const uint64_t received = (uint64_t(1) << 32) / r.in * r.in + 100 * uint64_t(r.in);
    s->consumed = received;
    s->produced = received / r.in * r.out;
    Samples out = convert(s.get(), in.data(), 1000, 1);
    const Samples more = convert(s.get(), in.data() + 1000, 1000, 1);
    out.insert(out.end(), more.begin(), more.end());
    for (size_t k = 0; k < out.size(); ++k) {
      const double x = double(received / r.in * r.out + k) * (double(r.in) / r.out) - double(received);
      const double f = x - std::floor(x);
      const size_t i = size_t(x);
      const double y = (1.0 - f) * in[i] + f * in[i + 1];
      ASSERT_EQ(out[k], int16_t(int32_t(y >= 0 ? y + 0.5 : y - 0.5))) << r.in << " Hz, frame " << k;
    }
    EXPECT_GE(out.size(), size_t(1998.0 * r.out / r.in));
  }
}

TEST(FreqChange, TwentyFourTimesIsExactlyTwentyFourFramesAnInputFrame) {
  const RatePtr s = makeRate(2000, 48000, 2);
  const Samples in = noise(2304, 19);
  EXPECT_EQ(convert(s.get(), in.data(), 1152, 2).size(), 2u * (1152 * 24 - 24));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(convert(s.get(), in.data(), 1152, 2).size(), 2u * 1152 * 24);
}

TEST(FreqChange, AnyAlignmentOfBytes) {
  const Samples in = noise(400, 21);
  const Samples expected = wholeStream(in, 44100, 48000, 2);
  for (size_t shift = 0; shift < 4; ++shift) {
    std::vector<uint8_t> bytes(800 + shift), out((expected.size() + 4) * 2 + shift, 0xA5);
    std::copy_n(reinterpret_cast<const uint8_t *>(in.data()), 800, bytes.begin() + std::ptrdiff_t(shift));
    const RatePtr s = makeRate(44100, 48000, 2);
    const uint32_t frames = qav::changeRate(*s, bytes.data() + shift, 200, out.data() + shift);
    ASSERT_EQ(frames * 2, expected.size());
    EXPECT_TRUE(std::equal(out.begin() + std::ptrdiff_t(shift), out.begin() + std::ptrdiff_t(shift + frames * 4),
                           reinterpret_cast<const uint8_t *>(expected.data())));
    for (size_t i = shift + frames * 4; i < out.size(); ++i) EXPECT_EQ(out[i], 0xA5) << "beyond the end";
  }
}

TEST(FreqChange, TermTakesNull) { EXPECT_EQ(NEB_freqChangeTerm(nullptr), 0); }

}  // namespace
