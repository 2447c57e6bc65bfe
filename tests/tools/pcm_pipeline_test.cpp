#include "tools/pcm/pcm_pipeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "tests/tools/memory_pcm.h"

namespace qav::tool {
namespace {

std::vector<int16_t> noise16(size_t count) {
  std::mt19937 random(5);
  std::vector<int16_t> samples(count);
  for (int16_t &sample : samples) sample = static_cast<int16_t>(random());
  return samples;
}

std::vector<int16_t> readAll(PcmPipeline &pipeline, unsigned channels, size_t piece = 1152) {
  std::vector<int16_t> all, part(piece * channels);
  size_t n = 0;
  do {
    n = pipeline.read(part.data(), piece);
    all.insert(all.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(n * channels));
  } while (n == piece);
  EXPECT_EQ(pipeline.read(part.data(), piece), 0u);
  return all;
}

template <typename Sample>
std::vector<int16_t> through(const std::vector<Sample> &samples, uint32_t freqHz, unsigned channels,
                             const PcmSettings &settings) {
  MemoryPcm<Sample> reader(freqHz, channels, samples);
  PcmPipeline pipeline(reader, settings);
  return readAll(pipeline, settings.channels);
}

TEST(PcmPipeline, SixteenBitsPassUntouched) {
  for (const size_t frames : {size_t{0}, size_t{1}, size_t{1152}, size_t{2048}, size_t{10007}}) {
    const std::vector<int16_t> samples = noise16(2 * frames);
    for (const size_t piece : {size_t{1}, size_t{1152}, size_t{100000}}) {
      MemoryPcm<int16_t> reader(44100, 2, samples);
      PcmPipeline pipeline(reader, {44100, 2});
      EXPECT_EQ(readAll(pipeline, 2, piece), samples);
      EXPECT_EQ(pipeline.inputFrames(), frames);
      EXPECT_FALSE(pipeline.hasDithered());
      EXPECT_FALSE(pipeline.convertsRate());
    }
  }
}

TEST(PcmPipeline, OneChannelIsSpread) {
  const std::vector<int16_t> samples = noise16(5000);
  const std::vector<int16_t> out = through(samples, 48000, 1, {48000, 2});
  ASSERT_EQ(out.size(), 10000u);
  for (size_t i = 0; i < 10000; ++i) EXPECT_EQ(out[i], samples[i / 2]);
  const std::vector<double> deep(samples.begin(), samples.end());
  std::vector<double> scaled = deep;
  for (double &sample : scaled) sample /= 32768.0;
  EXPECT_EQ(through(scaled, 48000, 1, {48000, 2}), out);
}

TEST(PcmPipeline, TwoChannelsAreAveraged) {
  const std::vector<int16_t> samples{10, 20, -7, 7, 32767, 32767, -32768, -32768, 100, -101};
  EXPECT_THAT(through(samples, 48000, 2, {48000, 1, Resampler::soxr, false}),
              testing::ElementsAre(15, 0, 32767, -32768, testing::AnyOf(0, -1)));
}

TEST(PcmPipeline, GainIsExactAndClippingIsCounted) {
  const std::vector<int16_t> samples{1000, -1000, 30000, -30000, 0};
  MemoryPcm<int16_t> reader(48000, 1, samples);
  PcmPipeline pipeline(reader, {48000, 1, Resampler::soxr, false, 20.0 * std::log10(2.0)});
  EXPECT_THAT(readAll(pipeline, 1), testing::ElementsAre(2000, -2000, 32767, -32768, 0));
  EXPECT_EQ(pipeline.clippedSamples(), 2u);
}

TEST(PcmPipeline, DeepSamplesAreDitheredUnlessForbidden) {
  const std::vector<double> samples(5000, 0.5 / 32768.0 + 0.25);
  for (const bool dither : {true, false}) {
    MemoryPcm<double> reader(48000, 1, samples);
    PcmPipeline pipeline(reader, {48000, 1, Resampler::soxr, dither});
    const std::vector<int16_t> out = readAll(pipeline, 1);
    EXPECT_EQ(pipeline.hasDithered(), dither);
    EXPECT_EQ(std::count(out.begin(), out.end(), out[0]) == 5000, !dither);
  }
}

TEST(PcmPipeline, BothResamplersGiveTheSameLengthAndNearlyTheSameTone) {
  std::vector<int16_t> tone;
  for (int i = 0; i < 44100; ++i)
    for (int c = 0; c < 2; ++c)
      tone.push_back(static_cast<int16_t>(10000 * std::sin(2 * std::numbers::pi * 200.0 * i / 44100 + c)));
  const std::vector<int16_t> fine = through(tone, 44100, 2, {48000, 2, Resampler::soxr});
  const std::vector<int16_t> plain = through(tone, 44100, 2, {48000, 2, Resampler::linear});
  ASSERT_EQ(fine.size(), 96000u);
  ASSERT_EQ(plain.size(), 96000u);
  for (size_t i = 1000; i < 95000; ++i) ASSERT_NEAR(fine[i], plain[i], 3) << i;
  const std::vector<int16_t> mono = through(tone, 44100, 2, {32000, 1, Resampler::linear});
  EXPECT_EQ(mono.size(), 32000u);
}

TEST(PcmPipeline, TheEightBitFilterIsAlignedAndKeepsChannelsApart) {
  std::vector<int16_t> impulses(2 * 20000);
  for (size_t i = 100; i < 20000; i += 1000) impulses[2 * i] = 100 * 256;
  MemoryPcm<int16_t> reader(44100, 2, impulses, 8);
  PcmPipeline pipeline(reader, {44100, 2, Resampler::soxr, true, 0.0, 4});
  const std::vector<int16_t> out = readAll(pipeline, 2);
  ASSERT_EQ(out.size(), impulses.size());
  for (size_t i = 100; i < 20000; i += 1000) {
    EXPECT_EQ(out[2 * i], 100 * 256 * 2 / 5) << i;  // the centre weight of level 4
    for (size_t d = 1; d <= 15; ++d) EXPECT_EQ(out[2 * (i - d)], out[2 * (i + d)]) << i << " " << d;
    EXPECT_EQ(out[2 * (i + 16)], 0);
    EXPECT_EQ(out[2 * i + 1], 0);
  }
}

TEST(PcmPipeline, TheMeterHearsWhatIsHandedOut) {
  std::vector<double> tone;
  for (int i = 0; i < 5 * 48000; ++i) tone.push_back(0.1 * std::sin(2 * std::numbers::pi * 1000.0 * i / 48000));
  std::vector<int16_t> tone16;
  for (const double value : tone) tone16.push_back(static_cast<int16_t>(std::lrint(value * 32768)));
  // 997 Hz at -20 dBFS in one channel is -23.0 LUFS by definition; 1000 Hz is as good as that.
  const auto loudness = [&](PcmReader &reader, const PcmSettings &settings) {
    LoudnessMeter meter(settings.freqHz, settings.channels);
    PcmPipeline pipeline(reader, settings, &meter);
    readAll(pipeline, settings.channels);
    const Loudness measured = meter.finish();
    EXPECT_NEAR(measured.truePeakDbtp, -20.0 + settings.gainDb, 0.1);
    EXPECT_NEAR(measured.rangeLu, 0.0, 0.2);
    return measured.integratedLufs;
  };
  MemoryPcm<double> deep(48000, 1, tone);
  EXPECT_NEAR(loudness(deep, {48000, 1}), -23.0, 0.01);
  MemoryPcm<int16_t> plain(48000, 1, tone16);
  EXPECT_NEAR(loudness(plain, {48000, 1}), -23.0, 0.1);
  MemoryPcm<int16_t> louder(48000, 1, tone16);
  EXPECT_NEAR(loudness(louder, {48000, 1, Resampler::soxr, true, 6.0}), -17.0, 0.1);
  MemoryPcm<int16_t> converted(48000, 1, tone16);
  EXPECT_NEAR(loudness(converted, {32000, 1, Resampler::linear}), -23.0, 0.1);
}

}  // namespace
}  // namespace qav::tool
