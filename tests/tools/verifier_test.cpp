#include "tools/pcm/verifier.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tools/io/failure.h"
#include "tools/pcm/layer2_encoder.h"

namespace qav::tool {
namespace {

// Noise through a simple low-pass filter: something like music.
std::vector<int16_t> music(size_t frames, unsigned channels) {
  std::mt19937 random(17);
  std::vector<int16_t> out;
  double state[2] = {};
  for (size_t i = 0; i < frames; ++i)
    for (unsigned c = 0; c < channels; ++c) {
      state[c] = 0.9 * state[c] + 0.1 * (static_cast<double>(random()) / 4294967296.0 - 0.5) * 60000.0;
      out.push_back(static_cast<int16_t>(state[c]));
    }
  return out;
}

struct Case {
  StreamFormat format;
  std::vector<int16_t> samples;
  std::vector<int16_t> decoded;
};

// Encode under the verifier's eyes, and once more for the test's own.
void run(Verifier &verifier, Case &test, size_t frames) {
  test.samples = music(frames * QAV_SAMPLES_PER_FRAME, test.format.channels);
  Layer2Encoder encoder(test.format, {});
  DecoderSession *decoder = nullptr;
  ASSERT_EQ(zo_mpeg_Decode1FrameInit(&decoder), 0u);
  for (size_t f = 0; f < frames; ++f) {
    const int16_t *const block = test.samples.data() + f * QAV_SAMPLES_PER_FRAME * test.format.channels;
    const uint32_t bytes = encoder.encode(block);
    verifier.add(block, encoder.frame(), bytes);
    std::vector<int16_t> out(QAV_SAMPLES_PER_FRAME * 2);
    uint32_t outBytes = 0, consumed = 0;
    ASSERT_EQ(zo_mpeg_Decode1Frame(decoder, encoder.frame(), bytes, out.data(), &outBytes, &consumed), 0u);
    test.decoded.insert(test.decoded.end(), out.begin(), out.begin() + outBytes / 2);
  }
  verifier.finish();
  zo_mpeg_Decode1FrameTerm(decoder);
}

TEST(Verifier, SignalToNoiseIsThatOfTheAlignedSamples) {
  for (const unsigned channels : {1u, 2u}) {
    Case test{{channels == 1 ? 192u : 384u, 48000, channels}, {}, {}};
    Verifier verifier(test.format);
    run(verifier, test, 20);
    double total[2] = {}, noise[2] = {};
    const size_t delay = kCodecDelay * channels;
    for (size_t i = 0; i + delay < test.samples.size(); ++i) {
      total[i % channels] += std::pow(test.samples[i], 2);
      noise[i % channels] += std::pow(test.samples[i] - test.decoded[i + delay], 2);
    }
    for (unsigned c = 0; c < channels; ++c) EXPECT_NEAR(verifier.snrDb(c), 10 * std::log10(total[c] / noise[c]), 0.001);
    EXPECT_NEAR(verifier.snrDb(), 10 * std::log10((total[0] + total[1]) / (noise[0] + noise[1])), 0.001);
    EXPECT_GT(verifier.snrDb(), 15.0);
  }
}

TEST(Verifier, MoreBitsMeanLessNoiseToMask) {
  double before = HUGE_VAL, shareBefore = -1.0;
  for (const uint32_t kbps : {64u, 128u, 192u, 384u}) {
    Case test{{kbps, 48000, 2}, {}, {}};
    Verifier verifier(test.format);
    run(verifier, test, 20);
    double mean = 0.0;
    for (unsigned band = 0; band < 20; ++band) {
      mean += verifier.noiseToMask(band).meanDb;
      EXPECT_GE(verifier.noiseToMask(band).worstDb, verifier.noiseToMask(band).meanDb);
    }
    EXPECT_LT(mean, before) << kbps;
    EXPECT_GE(verifier.maskedShare(), shareBefore) << kbps;
    before = mean;
    shareBefore = verifier.maskedShare();
  }
  EXPECT_LT(before, 0.0);
}

TEST(Verifier, SilenceHasNeitherSignalNorNoise) {
  Verifier verifier({192, 44100, 2});
  Layer2Encoder encoder({192, 44100, 2}, {});
  const std::vector<int16_t> silence(QAV_SAMPLES_PER_FRAME * 2);
  for (int f = 0; f < 3; ++f) {
    const uint32_t bytes = encoder.encode(silence.data());
    verifier.add(silence.data(), encoder.frame(), bytes);
  }
  verifier.finish();
  EXPECT_TRUE(std::isnan(verifier.snrDb()));
  EXPECT_EQ(verifier.noiseToMask(0).meanDb, -HUGE_VAL);
  EXPECT_EQ(verifier.maskedShare(), 1.0);
}

TEST(Verifier, AFrameThatDoesNotDecodeIsAnError) {
  Verifier verifier({192, 44100, 2});
  Layer2Encoder encoder({192, 44100, 2}, {});
  const std::vector<int16_t> samples = music(QAV_SAMPLES_PER_FRAME, 2);
  const uint32_t bytes = encoder.encode(samples.data());
  std::vector<uint8_t> damaged(encoder.frame(), encoder.frame() + bytes);
  damaged[7] ^= 0x10;  // in the protected allocation
  EXPECT_THROW(verifier.add(samples.data(), damaged.data(), bytes), Failure);
}

}  // namespace
}  // namespace qav::tool
