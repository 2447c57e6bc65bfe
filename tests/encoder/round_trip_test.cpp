// What the encoder writes, read by the decoder.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "encoder/encoder_session.h"
#include "tests/encoder/signals.h"
#include "tests/support/frame_parser.h"

namespace qav {
namespace {

constexpr uint32_t kDelay = 481;  // samples through both filterbanks

struct Term {
  void operator()(EncoderSession *s) const { zo_mpeg_Encode1FrameTerm(s); }
  void operator()(DecoderSession *s) const { zo_mpeg_Decode1FrameTerm(s); }
  void operator()(PsychoState *s) const { std::free(s); }
};
template <typename T>
using Owned = std::unique_ptr<T, Term>;

Owned<EncoderSession> encoder(uint32_t hz, uint32_t kbps, uint32_t channels, bool check) {
  const uint32_t options[5] = {0, 0, 0, check, 0};
  EncoderSession *s = nullptr;
  EXPECT_EQ(zo_mpeg_Encode1FrameInit(&s, hz, kbps, channels, options), uint32_t(QAV_ENCODE_OK));
  return Owned<EncoderSession>(s);
}

Owned<DecoderSession> decoder() {
  DecoderSession *s = nullptr;
  EXPECT_EQ(zo_mpeg_Decode1FrameInit(&s), uint32_t(QAV_DECODE_OK));
  return Owned<DecoderSession>(s);
}

// The decoder's samples, as many as were encoded.
std::vector<int16_t> roundTrip(EncoderSession &enc, const std::vector<int16_t> &pcm, uint32_t channels) {
  const Owned<DecoderSession> dec = decoder();
  std::vector<int16_t> all;
  for (size_t at = 0; at < pcm.size(); at += size_t(1152) * channels) {
    std::vector<uint8_t> frame(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
    uint32_t bytes = 0, outBytes = 0, consumed = 0;
    EXPECT_EQ(zo_mpeg_Encode1Frame(&enc, pcm.data() + at, 1152, frame.data(), &bytes), 0);
    int16_t out[2304];
    EXPECT_EQ(zo_mpeg_Decode1Frame(dec.get(), frame.data(), bytes, out, &outBytes, &consumed), uint32_t(QAV_DECODE_OK));
    EXPECT_EQ(consumed, bytes);
    EXPECT_EQ(outBytes, 2304 * channels);
    all.insert(all.end(), out, out + outBytes / 2);
  }
  return all;
}

// Signal-to-noise ratio in dB of one channel, with the delay taken out.
double snrDb(const std::vector<int16_t> &in, const std::vector<int16_t> &out, uint32_t channels, uint32_t ch) {
  double signal = 0, noise = 1e-9;
  for (size_t i = 0; i + kDelay < in.size() / channels; ++i) {
    const double x = in[i * channels + ch], y = out[(i + kDelay) * channels + ch];
    signal += x * x;
    noise += (x - y) * (x - y);
  }
  return 10 * std::log10(signal / noise);
}

TEST(RoundTrip, EveryFormatDecodesBack) {
  for (const uint32_t hz : {32000u, 44100u, 48000u})
    for (const uint32_t channels : {1u, 2u})
      for (const bool check : {false, true}) {
        const std::vector<int16_t> pcm = test::chord(12, channels, hz);
        double previous = 0;
        for (const uint32_t kbps : {32u, 48u, 56u, 64u, 80u, 96u, 112u, 128u, 160u, 192u, 224u, 256u, 320u, 384u}) {
          SCOPED_TRACE(std::to_string(hz) + " Hz, " + std::to_string(kbps) + " kbit/s, " + std::to_string(channels) +
                       " channels, check word " + std::to_string(check));
          const Owned<EncoderSession> enc = encoder(hz, kbps, channels, check);
          const std::vector<int16_t> back = roundTrip(*enc, pcm, channels);
          ASSERT_EQ(back.size(), pcm.size());
          for (uint32_t ch = 0; ch < channels; ++ch) {
            const double snr = snrDb(pcm, back, channels, ch);
            if (ch == 0) {
              EXPECT_GT(snr, previous - 6) << "more bits may go to more subbands, but not so many";
              previous = snr;
            }
            EXPECT_GT(snr, kbps / channels >= 128 ? 28 : kbps / channels >= 64 ? 15 : 3) << "channel " << ch;
          }
        }
      }
}

TEST(RoundTrip, TheDelayIsWhatItIsSaidToBe) {
  const Owned<EncoderSession> enc = encoder(48000, 384, 2, true);
  std::vector<int16_t> pcm(size_t(4) * 2304, 0);
  pcm[2 * 1000] = 30000;
  pcm[2 * 2500 + 1] = 30000;
  const std::vector<int16_t> back = roundTrip(*enc, pcm, 2);
  size_t loudest[2] = {};
  for (size_t i = 0; i < back.size(); ++i)
    if (std::abs(back[i]) > std::abs(back[2 * loudest[i % 2] + i % 2])) loudest[i % 2] = i / 2;
  EXPECT_EQ(loudest[0], 1000 + kDelay);
  EXPECT_EQ(loudest[1], 2500 + kDelay);
}

TEST(RoundTrip, SilenceStaysSilence) {
  for (const uint32_t kbps : {32u, 192u, 384u}) {
    const Owned<EncoderSession> enc = encoder(44100, kbps, 2, true);
    for (const int16_t sample : roundTrip(*enc, std::vector<int16_t>(6 * 2304, 0), 2)) ASSERT_EQ(sample, 0);
  }
}

// Where there are bits enough, the noise of every subband lies below the threshold that the model found in it.
TEST(RoundTrip, NoiseStaysBelowTheMask) {
  for (const uint32_t hz : {32000u, 44100u, 48000u}) {
    const std::vector<int16_t> pcm = test::chord(30, 2, hz);
    const Owned<EncoderSession> enc = encoder(hz, 384, 2, true);
    const Owned<PsychoState> model(neb_psycho_analInit(&enc->frame));
    double noise[2][32] = {}, mask[2][32] = {};
    for (size_t at = 0; at < pcm.size(); at += 2304) {
      std::vector<uint8_t> bytes(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
      uint32_t count = 0;
      ASSERT_EQ(zo_mpeg_Encode1Frame(enc.get(), pcm.data() + at, 1152, bytes.data(), &count), 0);
      test::ParsedFrame f;
      ASSERT_EQ(test::parseFrame(bytes.data(), count, f), "");
      for (uint32_t ch = 0; ch < 2; ++ch) {
        float smr[32];
        neb_psycho_anal(enc->pcmBuf[ch] + kFilterHistory, ch, smr, model.get());
        if (at < 2 * 2304) continue;  // the model's history fills
        for (uint32_t sb = 0; sb < f.sblimit; ++sb) {
          double signal = 0;
          for (uint32_t t = 0; t < 36; ++t) {
            const double x = double(enc->sbSample[ch][sb][samplePlace(t)]);
            const double y = f.levels[ch][sb] == 0
                                 ? 0
                                 : test::requantize(f.codes[ch][sb][t], f.levels[ch][sb], f.scaleIndex[ch][t / 12][sb]);
            signal += x * x;
            noise[ch][sb] += (x - y) * (x - y);
          }
          mask[ch][sb] += signal / std::pow(10.0, double(smr[sb]) / 10);
        }
      }
    }
    for (uint32_t ch = 0; ch < 2; ++ch)
      for (uint32_t sb = 0; sb < 27; ++sb)
        EXPECT_LT(10 * std::log10(noise[ch][sb] / mask[ch][sb]), 0)
            << hz << " Hz, channel " << ch << ", subband " << sb;
  }
}

}  // namespace
}  // namespace qav
