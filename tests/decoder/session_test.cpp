// Sessions and the queries about the stream.
#include <gtest/gtest.h>

#include <cstdlib>

#include "decoder/decoder_session.h"
#include "tests/decoder/decoder_fixture.h"

namespace {
bool refuseMemory = false;
}

// The linker leads the library's calls of calloc() here.
extern "C" {
void *__real_calloc(size_t n, size_t size);
void *__wrap_calloc(size_t n, size_t size) { return refuseMemory ? nullptr : __real_calloc(n, size); }
}

namespace qav::test {
namespace {

TEST(DecoderSession, TermAcceptsNull) { EXPECT_EQ(zo_mpeg_Decode1FrameTerm(nullptr), uint32_t(QAV_DECODE_OK)); }

TEST(DecoderSession, StartsWithSilenceAndNoHeader) {
  DecoderSession *s = nullptr;
  ASSERT_EQ(zo_mpeg_Decode1FrameInit(&s), uint32_t(QAV_DECODE_OK));
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->frame.allocTable, nullptr);
  EXPECT_EQ(NEB_mpeg_getFreqHz(s), 0u);
  EXPECT_EQ(NEB_mpeg_getChannel(s), 0u);
  EXPECT_EQ(NEB_mpeg_getKbps(s), 0u);
  for (int ch = 0; ch < 2; ++ch)
    for (const auto &row : s->synthesis[ch].row)
      for (const float v : row) ASSERT_EQ(v, 0.0f);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(s->synthesis) % alignof(SynthesisHistory), 0u);
  EXPECT_EQ(zo_mpeg_Decode1FrameTerm(s), uint32_t(QAV_DECODE_OK));
}

TEST(DecoderSession, InitWithoutMemory) {
  DecoderSession *s = reinterpret_cast<DecoderSession *>(&refuseMemory);
  refuseMemory = true;
  const uint32_t result = zo_mpeg_Decode1FrameInit(&s);
  refuseMemory = false;
  EXPECT_EQ(result, uint32_t(QAV_DECODE_NO_MEMORY));
  EXPECT_EQ(s, nullptr);
}

TEST(DecoderSession, QueriesAnswerForTheLastAcceptedHeader) {
  const DecoderPtr s = makeDecoder();
  const uint8_t good[4] = {0xFF, 0xFD, 0x84, 0xC0};  // Layer II, 128 kbit/s, 48 kHz, mono
  EXPECT_EQ(NEB_mpeg_get1FrameSize(good, s.get()), 384);
  EXPECT_EQ(NEB_mpeg_getFreqHz(s.get()), 48000u);
  EXPECT_EQ(NEB_mpeg_getChannel(s.get()), 1u);
  EXPECT_EQ(NEB_mpeg_getKbps(s.get()), 128u);

  const uint8_t free[4] = {0xFF, 0xFF, 0x00, 0x00}, layer3[4] = {0xFF, 0xFB, 0x90, 0x00};
  EXPECT_EQ(NEB_mpeg_get1FrameSize(free, s.get()), -1);
  EXPECT_EQ(NEB_mpeg_get1FrameSize(layer3, s.get()), -1);
  EXPECT_EQ(NEB_mpeg_getFreqHz(s.get()), 48000u);
  EXPECT_EQ(NEB_mpeg_getChannel(s.get()), 1u);
  EXPECT_EQ(NEB_mpeg_getKbps(s.get()), 128u);
}

}  // namespace
}  // namespace qav::test
