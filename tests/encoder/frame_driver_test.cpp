#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "encoder/encoder.h"
#include "encoder/encoder_session.h"
#include "tests/encoder/signals.h"
#include "tests/support/frame_parser.h"

namespace qav {
namespace {

constexpr uint32_t kBitrates[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};

struct Term {
  void operator()(EncoderSession *s) const { zo_mpeg_Encode1FrameTerm(s); }
};
using Session = std::unique_ptr<EncoderSession, Term>;

Session create(uint32_t hz, uint32_t kbps, uint32_t channels, bool check, CpuLevel level = detectCpuLevel()) {
  const uint32_t options[5] = {0, 0, 0, check, 0};
  EncoderSession *s = nullptr;
  EXPECT_EQ(initEncoder(&s, hz, kbps, channels, options, level), uint32_t(QAV_ENCODE_OK));
  return Session(s);
}

// One frame, in memory that ends where a frame may end.
std::vector<uint8_t> encodeFrame(EncoderSession &s, const int16_t *pcm, uint32_t samples) {
  constexpr uint8_t kGuard = 0xA5;
  std::vector<uint8_t> out(QAV_MAX_FRAME_BYTES + 64, kGuard);
  uint32_t bytes = 12345;
  EXPECT_EQ(zo_mpeg_Encode1Frame(&s, pcm, samples, out.data(), &bytes), 0);
  const size_t end = bytes + (s.slotsPerFrame == 0);  // only a frame without a length may end within a byte
  for (size_t i = end + QAV_ENCODE_SLACK_BYTES; i < out.size(); ++i) EXPECT_EQ(out[i], kGuard) << "byte " << i;
  out.resize(bytes);
  return out;
}

std::vector<uint8_t> encodeAll(EncoderSession &s, const std::vector<int16_t> &pcm) {
  const uint32_t channels = s.frame.channels == 1 ? 1 : 2;
  std::vector<uint8_t> stream;
  for (size_t at = 0; at < pcm.size(); at += size_t(1152) * channels) {
    const auto frame = encodeFrame(s, pcm.data() + at, uint32_t(std::min<size_t>(1152, (pcm.size() - at) / channels)));
    stream.insert(stream.end(), frame.begin(), frame.end());
  }
  return stream;
}

TEST(FrameDriver, NothingInNothingOut) {
  const Session s = create(44100, 128, 2, true);
  const double lag = s->slotLag;
  uint8_t out[4] = {1, 2, 3, 4};
  uint32_t bytes = 99;
  EXPECT_EQ(zo_mpeg_Encode1Frame(s.get(), nullptr, 0, out, &bytes), -1);
  EXPECT_EQ(bytes, 0u);
  EXPECT_EQ(std::memcmp(out, "\0\2\3\4", 4), 0);
  EXPECT_EQ(s->slotLag, lag);
  EXPECT_EQ(s->frame.padding, 0);
}

TEST(FrameDriver, EveryFormatParses) {
  for (const uint32_t hz : {32000u, 44100u, 48000u})
    for (const uint32_t kbps : kBitrates)
      for (const uint32_t channels : {1u, 2u})
        for (const bool check : {false, true}) {
          SCOPED_TRACE(std::to_string(hz) + " Hz, " + std::to_string(kbps) + " kbit/s, " + std::to_string(channels) +
                       " channels, check word " + std::to_string(check));
          const Session s = create(hz, kbps, channels, check);
          const std::vector<int16_t> pcm = test::mixedSignal(14, channels, hz + kbps);
          const std::vector<test::ParsedFrame> frames = test::parseStream(encodeAll(*s, pcm));
          ASSERT_EQ(frames.size(), 14u);
          for (const test::ParsedFrame &f : frames) {
            ASSERT_EQ(f.bitrateKbps, kbps);
            ASSERT_EQ(f.samplingHz, hz);
            ASSERT_EQ(f.channels, channels);
            ASSERT_EQ(f.protectionBit, check ? 0u : 1u);
            ASSERT_EQ(f.checkWord, f.computedCheckWord);
            ASSERT_TRUE(f.leftAreZero);
            for (uint32_t ch = 0; ch < channels; ++ch)
              for (uint32_t sb = 0; sb < f.sblimit; ++sb)
                for (uint32_t part = 0; part < 3 && f.levels[ch][sb] != 0; ++part)
                  ASSERT_LT(f.scaleIndex[ch][part][sb], 63u);
          }
        }
}

// Synthesis of clause 2.4.3.2.2 is the decoder's; here each subband sample is compared with what was quantised.
TEST(FrameDriver, SamplesReadBackWithinHalfAQuantisationStep) {
  const Session s = create(48000, 320, 2, true);
  const std::vector<int16_t> pcm = test::mixedSignal(20, 2, 61);
  for (size_t at = 0; at < pcm.size(); at += 2304) {
    const std::vector<uint8_t> bytes = encodeFrame(*s, pcm.data() + at, 1152);
    test::ParsedFrame f;
    ASSERT_EQ(test::parseFrame(bytes.data(), bytes.size(), f), "");
    for (uint32_t ch = 0; ch < 2; ++ch)
      for (uint32_t sb = 0; sb < f.sblimit; ++sb)
        for (uint32_t t = 0; t < 36 && f.levels[ch][sb] != 0; ++t) {
          const uint32_t index = f.scaleIndex[ch][t / 12][sb];
          const double scale = std::exp2(1 - index / 3.0), step = 2 * scale / f.levels[ch][sb];
          ASSERT_NEAR(test::requantize(f.codes[ch][sb][t], f.levels[ch][sb], index),
                      double(s->sbSample[ch][sb][samplePlace(t)]), step * 0.5001 + scale * 1e-6)
              << f.levels[ch][sb] << " levels";
        }
  }
}

TEST(FrameDriver, FramesAt44100HzAreAsLongAsTheBitrateSaysOnAverage) {
  const Session s = create(44100, 128, 2, true);
  const std::vector<int16_t> silence(2304, 0);
  size_t total = 0;
  for (int f = 0; f < 490; ++f) {
    const size_t bytes = encodeFrame(*s, silence.data(), 1152).size();
    EXPECT_EQ(f == 0 ? bytes : 418u, 418u) << "the first frame is padded";
    ASSERT_TRUE(bytes == 417 || bytes == 418);
    total += bytes;
  }
  EXPECT_EQ(total, uint64_t{490} * 144000 * 128 / 44100);
}

TEST(FrameDriver, FramesAt48000HzAreNeverPadded) {
  const Session s = create(48000, 128, 2, true);
  const std::vector<int16_t> silence(2304, 0);
  for (int f = 0; f < 20; ++f) {
    EXPECT_EQ(encodeFrame(*s, silence.data(), 1152).size(), 384u);
    EXPECT_EQ(s->frame.padding, 0);
  }
}

TEST(FrameDriver, NoCheckWordLeavesTheLengthAlone) {
  const std::vector<int16_t> pcm = test::mixedSignal(6, 2, 62);
  const Session with = create(32000, 64, 2, true), without = create(32000, 64, 2, false);
  const auto a = test::parseStream(encodeAll(*with, pcm)), b = test::parseStream(encodeAll(*without, pcm));
  for (size_t f = 0; f < a.size(); ++f) EXPECT_EQ(a[f].bytes, b[f].bytes);
}

TEST(FrameDriver, AShortFrameIsOneWithSilenceBehind) {
  std::vector<int16_t> pcm = test::mixedSignal(1, 2, 63);
  const Session shortOne = create(44100, 192, 2, true), whole = create(44100, 192, 2, true);
  const auto a = encodeFrame(*shortOne, pcm.data(), 100);
  std::fill(pcm.begin() + 200, pcm.end(), int16_t(0));
  EXPECT_EQ(a, encodeFrame(*whole, pcm.data(), 1152));
}

TEST(FrameDriver, MoreThanAFrameIsCutOff) {
  const std::vector<int16_t> pcm = test::mixedSignal(1, 2, 64);
  const Session tooLong = create(44100, 192, 2, true), whole = create(44100, 192, 2, true);
  EXPECT_EQ(encodeFrame(*tooLong, pcm.data(), 0xFFFFFFFF), encodeFrame(*whole, pcm.data(), 1152));
}

TEST(FrameDriver, ABitrateOfNothingDoesNoHarm) {
  for (const uint32_t channels : {1u, 2u}) {
    const Session s = create(44100, 0, channels, true);
    const std::vector<int16_t> pcm = test::mixedSignal(3, channels, 65);
    for (int f = 0; f < 3; ++f) EXPECT_LT(encodeFrame(*s, pcm.data(), 1152).size(), 100u);
  }
}

TEST(FrameDriver, AnyCountOfChannelsDoesNoHarm) {
  const std::vector<int16_t> pcm = test::mixedSignal(3, 2, 66);
  for (const uint32_t channels : {0u, 3u, 17u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    const Session s = create(48000, 128, channels, true);
    for (int f = 0; f < 3; ++f) EXPECT_EQ(encodeFrame(*s, pcm.data(), 1152).size(), 384u) << channels << " channels";
  }
}

// A count that is negative as a signed number.
TEST(FrameDriver, LessThanNoChannelsAreNoChannels) {
  const std::vector<int16_t> pcm = test::mixedSignal(3, 2, 66);
  const auto framesOf = [&](uint32_t channels) {
    const Session s = create(48000, 128, channels, false);
    return encodeAll(*s, pcm);
  };
  const std::vector<uint8_t> none = framesOf(0);
  EXPECT_NE(none, framesOf(1));
  for (const uint32_t channels : {0x80000000u, 0xFFFFFFFFu}) EXPECT_EQ(framesOf(channels), none) << channels;
}

TEST(FrameDriver, OptionsStandInTheHeader) {
  const uint32_t options[5] = {3, 1, 1, 2, 0};
  EncoderSession *raw = nullptr;
  ASSERT_EQ(zo_mpeg_Encode1FrameInit(&raw, 48000, 192, 1, options), uint32_t(QAV_ENCODE_OK));
  const Session s(raw);
  const std::vector<uint8_t> bytes = encodeFrame(*s, test::mixedSignal(1, 1, 67).data(), 1152);
  test::ParsedFrame f;
  ASSERT_EQ(test::parseFrame(bytes.data(), bytes.size(), f), "");
  EXPECT_EQ(f.emphasis, 3u);
  EXPECT_EQ(f.copyright, 1u);
  EXPECT_EQ(f.original, 1u);
  EXPECT_EQ(f.protectionBit, 0u) << "any value but 0 asks for check words";
  EXPECT_EQ(f.mode, 3u);
  EXPECT_EQ(f.modeExtension, 0u);
  EXPECT_EQ(f.privateBit, 0u);
}

TEST(FrameDriver, ByteSwappedStereoIsTheSameStream) {
  const std::vector<int16_t> pcm = test::mixedSignal(4, 2, 68);
  std::vector<int16_t> swapped = pcm;
  for (int16_t &x : swapped) x = int16_t(uint16_t(x) >> 8 | uint16_t(x) << 8);
  const uint32_t options[5] = {0, 0, 0, 1, 1};
  EncoderSession *raw = nullptr;
  ASSERT_EQ(zo_mpeg_Encode1FrameInit(&raw, 44100, 192, 2, options), uint32_t(QAV_ENCODE_OK));
  const Session swapping(raw), plain = create(44100, 192, 2, true);
  EXPECT_EQ(encodeAll(*swapping, swapped), encodeAll(*plain, pcm));
}

TEST(FrameDriver, AMonoStreamLeavesChannel1Alone) {
  const Session s = create(44100, 96, 1, true);
  encodeAll(*s, test::mixedSignal(5, 1, 72));
  for (const int16_t sample : s->pcmBuf[1]) ASSERT_EQ(sample, 0);
  for (const auto &subband : s->sbSample[1])
    for (const float x : subband) ASSERT_EQ(x, 0.0f);
}

TEST(FrameDriver, SessionsDoNotMeet) {
  const std::vector<int16_t> a = test::mixedSignal(5, 2, 69), b = test::mixedSignal(5, 2, 70);
  const Session alone = create(44100, 192, 2, true), first = create(44100, 192, 2, true),
                other = create(32000, 64, 2, true);
  std::vector<uint8_t> together;
  for (size_t at = 0; at < a.size(); at += 2304) {
    const auto frame = encodeFrame(*first, a.data() + at, 1152);
    together.insert(together.end(), frame.begin(), frame.end());
    encodeFrame(*other, b.data() + at, 1152);
  }
  EXPECT_EQ(together, encodeAll(*alone, a));
}

// FNV-1a.
uint64_t hashOf(const std::vector<uint8_t> &bytes, uint64_t hash = 0xCBF29CE484222325u) {
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3u;
  return hash;
}

// One value for every compiler, optimisation and CPU: whoever changes a rounding anywhere in the encoder sees it here.
TEST(FrameDriver, TheSamePcmGivesTheSameBytesEverywhere) {
  for (const CpuLevel level : kCpuLevels) {
    if (level > detectCpuLevel()) continue;
    uint64_t hash = 0xCBF29CE484222325u;
    for (const uint32_t hz : {32000u, 44100u, 48000u})
      for (const uint32_t kbps : {32u, 64u, 128u, 192u, 384u})
        for (const uint32_t channels : {1u, 2u}) {
          const Session s = create(hz, kbps, channels, true, level);
          hash = hashOf(encodeAll(*s, test::mixedSignal(30, channels, hz / 100 + kbps)), hash);
        }
    EXPECT_EQ(hash, 0x32C4C99828657857u) << cpuLevelName(level) << ": 0x" << std::hex << hash;
  }
}

}  // namespace
}  // namespace qav
