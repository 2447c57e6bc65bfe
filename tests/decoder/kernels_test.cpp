// Every CPU level against the bodies compiled for one lane: the same bits.
#include "decoder/kernels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "decoder/dequant_kernels.inl.h"
#include "decoder/synthesis_kernels.inl.h"
#include "tests/decoder/decoder_fixture.h"
#include "tests/support/guarded.h"

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

using Output = Guarded<int16_t[2 * 32 * kMaxBlocks]>;

template <int N, int Layer, int Channels>
void plainSynthesis(const SubbandSamples &samples, SynthesisHistory *history, int16_t *out) {
  kernels::synthesisBody<N, Layer, Channels>(samples, history, out);
}

TEST_P(Kernels, Synthesis) {
  const unsigned seed = 991;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto here = std::make_unique<SynthesisHistory[]>(2), plain = std::make_unique<SynthesisHistory[]>(2);
  const auto samples = std::make_unique<SubbandSamples>();
  for (int round = 0; round < 200; ++round) {
    const int layer = random() % 3 == 0 ? 1 : 2, channels = random() % 3 == 0 ? 1 : 2;
    for (auto &sb : samples->value)
      for (float &v : sb) v = anyValue(random, round % 5);
    Output outputs[2] = {Output(2 * size_t(round)), Output(random() % 64)};
    const auto index = size_t(channels - 1);
    (layer == 1 ? kernels.I_SubBandSynthesis : kernels.II_SubBandSynthesis)[index](*samples, here.get(), *outputs[0]);
    const DecoderKernels::Synthesis bodies[2][2] = {{plainSynthesis<1, 1, 1>, plainSynthesis<1, 1, 2>},
                                                    {plainSynthesis<1, 2, 1>, plainSynthesis<1, 2, 2>}};
    bodies[layer - 1][index](*samples, plain.get(), *outputs[1]);
    ASSERT_EQ(std::memcmp(*outputs[0], *outputs[1], sizeof *outputs[0]), 0) << "round " << round;
    ASSERT_TRUE(outputs[0].isIntact()) << "round " << round;
    const uint8_t *const bytes = reinterpret_cast<const uint8_t *>(*outputs[0]);
    const size_t written = size_t((layer == 1 ? 384 : 1152) * channels) * 2;
    ASSERT_TRUE(std::all_of(bytes + written, bytes + sizeof *outputs[0], [](uint8_t b) { return b == 0x5A; }));
    for (int ch = 0; ch < 2; ++ch) {
      here[size_t(ch)].advance(layer == 1 ? 12 : 36);
      plain[size_t(ch)].advance(layer == 1 ? 12 : 36);
      ASSERT_EQ(std::memcmp(here[size_t(ch)].row, plain[size_t(ch)].row, sizeof(float[kHistoryRows][kRow])), 0)
          << "round " << round;
    }
  }
}

TEST_P(Kernels, Dequantisers) {
  const unsigned seed = 992;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto codes = std::make_unique<FrameCodes>();
  const auto side = std::make_unique<SideInfo>();
  for (int round = 0; round < 300; ++round) {
    for (auto &ch : side->scaleFactor)
      for (auto &part : ch)
        for (uint32_t &index : part) index = uint32_t(random() % 64);
    for (auto &word : codes->words)
      for (uint64_t &w : word) w = uint64_t(random()) << 32 | random();
    FieldList *const lists[4] = {&codes->single, &codes->grouped, &codes->shortTriples, &codes->longTriples};
    for (FieldList *list : lists) list->count = 0;
    const int layer = round % 2 + 1;
    for (uint8_t sb = 0; sb < 32; ++sb) {
      const bool shared = random() % 3 == 0;
      for (uint8_t ch = 0; ch < (shared ? 1 : 2); ++ch) {
        if (random() % 4 == 0) continue;
        const uint8_t first = ch, last = shared ? 1 : ch, word = uint8_t(random() % 64);
        const auto field = [&](uint32_t bits, uint32_t shift, uint32_t quant) -> CodeField {
          return {word, uint8_t(shift), uint8_t(bits), uint8_t(quant), sb, first, last};
        };
        if (layer == 1) {
          codes->single.add(field(uint32_t(2 + random() % 15), uint32_t(random() % 42), 0));
          continue;
        }
        const auto quant = uint32_t(random() % 17);
        switch (quant) {
          case 0: codes->grouped.add(field(5, uint32_t(random() % 53), quant)); break;
          case 1: codes->grouped.add(field(7, uint32_t(random() % 51), quant)); break;
          case 3: codes->grouped.add(field(10, uint32_t(random() % 48), quant)); break;
          case 2: codes->shortTriples.add(field(3, uint32_t(random() % 49), quant)); break;
          default:
            (quant <= 10 ? codes->shortTriples : codes->longTriples)
                .add(field(quant, uint32_t(random() % (58 - 3 * quant)), quant));
        }
      }
    }
    Guarded<SubbandSamples> here, plain;
    if (layer == 1) {
      kernels.I_dequantize_sample(*codes, *side, *here);
      kernels::I_dequantizeBody<1>(*codes, *side, *plain);
    } else {
      kernels.II_dequantize_sample(*codes, *side, *here);
      kernels::II_dequantizeBody<1>(*codes, *side, *plain);
    }
    ASSERT_TRUE(here.isIntact()) << "layer " << layer << ", round " << round;
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < 2; ++ch)
        ASSERT_EQ(std::memcmp((*here).value[sb] + kChannelStride * ch, (*plain).value[sb] + kChannelStride * ch,
                              (layer == 1 ? 12 : 36) * sizeof(float)),
                  0)
            << "layer " << layer << ", round " << round << ", channel " << ch << ", subband " << sb;
  }
}

TEST_P(Kernels, ClearsWhatHasNoSamples) {
  uint32_t allocation[32];
  for (uint32_t sb = 0; sb < 32; ++sb) allocation[sb] = sb % 3;
  const auto samples = std::make_unique<SubbandSamples>();
  for (int ch = 0; ch < 2; ++ch) {
    for (auto &sb : samples->value)
      for (float &v : sb) v = 7.0f;
    kernels.clearUnallocated(allocation, ch, *samples);
    for (int sb = 0; sb < 32; ++sb)
      for (int i = 0; i < 2 * kChannelStride; ++i)
        ASSERT_EQ(samples->value[sb][i], i / kChannelStride == ch && sb % 3 == 0 ? 0.0f : 7.0f);
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Kernels, testing::ValuesIn(levelsHere()),
                         [](const auto &test) { return cpuLevelName(test.param); });

}  // namespace
}  // namespace qav::test
