#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "encoder/encoder.h"
#include "encoder/encoder_session.h"
#include "psycho/psycho_state.h"

namespace qav {
namespace {

struct Term {
  void operator()(EncoderSession *s) const { zo_mpeg_Encode1FrameTerm(s); }
};
using Session = std::unique_ptr<EncoderSession, Term>;

Session create(uint32_t hz, uint32_t kbps, uint32_t channels, const uint32_t *options = nullptr) {
  EncoderSession *s = nullptr;
  EXPECT_EQ(zo_mpeg_Encode1FrameInit(&s, hz, kbps, channels, options), uint32_t(QAV_ENCODE_OK));
  return Session(s);
}

uint32_t refusal(uint32_t hz, uint32_t kbps) {
  auto *s = reinterpret_cast<EncoderSession *>(1);
  const uint32_t result = zo_mpeg_Encode1FrameInit(&s, hz, kbps, 2, nullptr);
  EXPECT_EQ(s, nullptr);
  return result;
}

TEST(EncoderSession, RefusesRatesBeforeBitrates) {
  EXPECT_EQ(refusal(22050, 128), uint32_t(QAV_ENCODE_BAD_RATE));
  EXPECT_EQ(refusal(0, 128), uint32_t(QAV_ENCODE_BAD_RATE));
  EXPECT_EQ(refusal(44100, 40), uint32_t(QAV_ENCODE_BAD_BITRATE));
  EXPECT_EQ(refusal(44100, 416), uint32_t(QAV_ENCODE_BAD_BITRATE)) << "a bitrate of Layer I";
  EXPECT_EQ(refusal(22050, 40), uint32_t(QAV_ENCODE_BAD_RATE));
}

TEST(EncoderSession, TermTakesNull) { EXPECT_EQ(zo_mpeg_Encode1FrameTerm(nullptr), uint32_t(QAV_ENCODE_OK)); }

TEST(EncoderSession, StartsAsConfigured) {
  const uint32_t options[5] = {3, 1, 1, 0, 1};
  const Session s = create(32000, 384, 1, options);
  EXPECT_EQ(s->frame.id, 1);
  EXPECT_EQ(s->frame.layer, 2);
  EXPECT_EQ(s->frame.mode, 3);
  EXPECT_EQ(s->frame.samplingIndex, 2);
  EXPECT_EQ(s->frame.bitrateIndex, 14);
  EXPECT_EQ(s->frame.emphasis, 3);
  EXPECT_EQ(s->frame.copyright, 1);
  EXPECT_EQ(s->frame.original, 1);
  EXPECT_EQ(s->frame.protection, 0);
  EXPECT_EQ(s->byteSwap, 1u);
  EXPECT_EQ(s->slotsPerFrame, 1728u);
  EXPECT_EQ(s->fracSlots, 0.0);

  const Session byDefault = create(48000, 192, 2);
  EXPECT_EQ(byDefault->frame.mode, 0);
  EXPECT_EQ(byDefault->frame.protection, 1);
  EXPECT_EQ(byDefault->frame.emphasis | byDefault->frame.copyright | byDefault->frame.original, 0);
  EXPECT_EQ(byDefault->byteSwap, 0u);
}

TEST(EncoderSession, AverageFrameLength) {
  const Session s = create(44100, 128, 2);
  EXPECT_EQ(s->slotsPerFrame, 417u);
  EXPECT_NEAR(s->fracSlots, 0.959183, 1e-6);
  EXPECT_EQ(s->slotLag, -s->fracSlots);
  for (const uint32_t kbps : {32u, 48u, 56u, 64u, 80u, 96u, 112u, 128u, 160u, 192u, 224u, 256u, 320u, 384u}) {
    EXPECT_EQ(create(48000, kbps, 2)->fracSlots, 0.0);
    EXPECT_EQ(create(48000, kbps, 2)->slotsPerFrame, kbps * 3);
  }
}

TEST(EncoderSession, IsSmall) { EXPECT_LT(sizeof(EncoderSession) + sizeof(PsychoState), 100u * 1024); }

class ReadEncFrame : public testing::Test {
 protected:
  void read(uint32_t channels, uint32_t samples, uint32_t swap) {
    pcm.resize(2 * samples);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = int16_t(0x0102 + i * 0x0305);
    std::memset(input, 0x5A, sizeof input);
    for (int ch = 0; ch < 2; ++ch)
      for (uint32_t i = 0; i < kFilterHistory; ++i) input[ch][kChannelSamples + i] = int16_t(100 * ch + int(i));
    readEncFrame(channels, input, pcm.data(), samples, swap);
  }

  std::vector<int16_t> pcm;
  int16_t input[2][kInputSamples];
  int16_t *const buffer[2] = {input[0] + kFilterHistory, input[1] + kFilterHistory};
};

int16_t swapped(int16_t s) { return int16_t(uint16_t(s) >> 8 | uint16_t(s) << 8); }

TEST_F(ReadEncFrame, TakesStereoApart) {
  read(2, 1152, 0);
  for (size_t i = 0; i < 1152; ++i) {
    ASSERT_EQ(buffer[0][i], pcm[2 * i]);
    ASSERT_EQ(buffer[1][i], pcm[2 * i + 1]);
  }
}

TEST_F(ReadEncFrame, KeepsTheEndOfTheFrameBefore) {
  read(1, 100, 0);
  for (int ch = 0; ch < 2; ++ch)
    for (uint32_t i = 0; i < kFilterHistory; ++i) ASSERT_EQ(input[ch][i], int16_t(100 * ch + int(i)));
}

TEST_F(ReadEncFrame, SwapsStereoOnly) {
  read(2, 1152, 1);
  for (size_t i = 0; i < 1152; ++i) {
    ASSERT_EQ(buffer[0][i], swapped(pcm[2 * i]));
    ASSERT_EQ(buffer[1][i], swapped(pcm[2 * i + 1]));
  }
  read(1, 1152, 1);
  for (size_t i = 0; i < 1152; ++i) {
    ASSERT_EQ(buffer[0][i], pcm[i]);
    ASSERT_EQ(buffer[1][i], 0);
  }
}

TEST_F(ReadEncFrame, FillsAShortFrameWithSilence) {
  for (const uint32_t channels : {1u, 2u}) {
    read(channels, 100, 0);
    EXPECT_EQ(buffer[0][99], pcm[channels * 99]);
    for (size_t i = 100; i < 1152; ++i) {
      ASSERT_EQ(buffer[0][i], 0);
      ASSERT_EQ(buffer[1][i], 0);
    }
  }
}

TEST_F(ReadEncFrame, ReadsNoMoreThanAFrame) {
  read(2, 2000, 0);  // a sanitizer or the guard below would tell
  EXPECT_EQ(buffer[1][1151], pcm[2303]);
}

}  // namespace
}  // namespace qav
