// Every CPU level against the bodies compiled for one lane: the same bits.
#include "decoder/kernels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "decoder/dequant_kernels.inl.h"
#include "decoder/synthesis_kernels.inl.h"
#include "tests/decoder/decoder_fixture.h"

namespace qav::test {
namespace {

class Kernels : public testing::TestWithParam<CpuLevel> {
 protected:
  const DecoderKernels &kernels = decoderKernelsFor(GetParam());
};

// Values of all kinds: of a music signal, far too loud, too small to be normal, zeros of both signs.
float anyValue(std::mt19937 &random, int kind) {
  const float unit = std::uniform_real_distribution<float>(-1.0f, 1.0f)(random);
  switch (kind == 4 ? int(random() % 4) : kind) {
    case 0: return 0.1f * unit;
    case 1: return 1000.0f * unit;
    case 2: return 1e-39f * unit;
    default: return random() % 2 ? 0.0f : -0.0f;
  }
}

TEST_P(Kernels, Synthesis) {
  const unsigned seed = 991;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto here = std::make_unique<SynthesisHistory>(), plain = std::make_unique<SynthesisHistory>();
  const auto samples = std::make_unique<SubbandSamples>();
  for (int round = 0; round < 60; ++round) {
    const int kind = round % 5;
    const bool layer1 = random() % 3 == 0;
    for (auto &sb : samples->value[0])
      for (float &v : sb) v = anyValue(random, kind);
    ChannelPcm pcm[2];
    std::memset(pcm, 0x77, sizeof pcm);
    if (layer1) {
      kernels.I_SubBandSynthesis(samples->value[0], *here, pcm[0]);
      kernels::synthesisBody<1, 1>(samples->value[0], *plain, pcm[1]);
    } else {
      kernels.II_SubBandSynthesis(samples->value[0], *here, pcm[0]);
      kernels::synthesisBody<1, 2>(samples->value[0], *plain, pcm[1]);
    }
    ASSERT_EQ(std::memcmp(&pcm[0], &pcm[1], sizeof pcm[0]), 0) << "round " << round;
    here->advance(layer1 ? 12 : 36);
    plain->advance(layer1 ? 12 : 36);
    ASSERT_EQ(std::memcmp(here.get(), plain.get(), sizeof *here), 0) << "round " << round;
  }
}

TEST_P(Kernels, Dequantisers) {
  const unsigned seed = 992;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto codes = std::make_unique<FrameCodes>();
  const auto scales = std::make_unique<GranuleScales>();
  for (int round = 0; round < 200; ++round) {
    for (auto &ch : scales->value)
      for (auto &sb : ch)
        for (float &v : sb) v = anyValue(random, round % 5);
    codes->count = 0;
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < 2; ++ch) {
        if (random() % 4 == 0) continue;
        SubbandCodes &subband = codes->subbands[codes->count++];
        for (uint32_t &word : subband.upper) word = uint32_t(random());
        for (uint32_t &word : subband.lower) word = uint32_t(random());
        subband.bits = int32_t(2 + random() % 15);
        subband.quant = int32_t(random() % 17);
        subband.sb = sb;
        subband.firstChannel = ch;
        subband.lastChannel = ch == 0 && random() % 3 == 0 ? ch++, 1 : ch;
      }
    const auto samples = std::make_unique<SubbandSamples[]>(2);
    for (const int layer : {1, 2}) {
      for (int i = 0; i < 2; ++i) std::memset(&samples[size_t(i)], 0x33, sizeof(SubbandSamples));
      if (layer == 1) {
        kernels.I_dequantize_sample(*codes, *scales, samples[0]);
        kernels::I_dequantizeBody<1>(*codes, *scales, samples[1]);
      } else {
        kernels.II_dequantize_sample(*codes, *scales, samples[0]);
        kernels::II_dequantizeBody<1>(*codes, *scales, samples[1]);
      }
      for (int ch = 0; ch < 2; ++ch)
        for (int sb = 0; sb < 32; ++sb)
          ASSERT_EQ(std::memcmp(samples[0].value[ch][sb], samples[1].value[ch][sb], (layer == 1 ? 12 : 36) * 4), 0)
              << "layer " << layer << ", round " << round << ", channel " << ch << ", subband " << sb;
    }
  }
}

TEST_P(Kernels, StoresWriteTheirFramesAndNoMore) {
  const unsigned seed = 993;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  ChannelPcm pcm[2];
  for (ChannelPcm &channel : pcm)
    for (int32_t &v : channel.sample) v = int32_t(random() % 65536) - 32768;
  for (int frames = 0; frames <= 1152; frames += 32)
    for (const size_t misalignment : {0u, 1u, 3u}) {
      for (const int channels : {1, 2}) {
        const size_t count = size_t(frames * channels);
        Samples out(misalignment + count + 1, kUntouched);
        (channels == 1 ? kernels.storeMono : kernels.storeStereo)(pcm, frames, out.data() + misalignment);
        for (size_t i = 0; i < count; ++i)
          ASSERT_EQ(out[misalignment + i], pcm[i % size_t(channels)].sample[i / size_t(channels)]);
        for (size_t i = 0; i < misalignment; ++i) ASSERT_EQ(out[i], kUntouched);
        ASSERT_EQ(out.back(), kUntouched);
      }
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, Kernels, testing::ValuesIn(levelsHere()),
                         [](const auto &test) { return cpuLevelName(test.param); });

}  // namespace
}  // namespace qav::test
