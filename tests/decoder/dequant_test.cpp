// From the bits of the samples to subband samples, one code at a time.
#include <gtest/gtest.h>

#include <memory>

#include "decoder/kernels.h"
#include "decoder/sample_codes.h"
#include "format/format.h"
#include "tests/decoder/decoder_fixture.h"

namespace qav::test {
namespace {

// A string of bits as bytes.
class BitWriterForTest {
 public:
  void put(uint32_t value, uint32_t n) {
    for (; n > 0; --n, ++count) {
      if (count % 8 == 0) bytes.push_back(0);
      bytes.back() = uint8_t(bytes.back() | (value >> (n - 1) & 1) << (7 - count % 8));
    }
  }
  Bytes bytes;
  size_t count = 0;
};

struct Stage {
  SideInfo side{};
  FrameParams fp{};
  FrameCodes codes{};
  SubbandSamples samples{};

  void run(const Bytes &bytes, const DecoderKernels &kernels) {
    BitReader bits(bytes.data(), uint32_t(bytes.size()));
    codes = FrameCodes{};
    for (int ch = 0; ch < fp.channels; ++ch) kernels.clearUnallocated(side.allocation[ch], ch, samples);
    if (fp.layer == 1) {
      I_buffer_sample(bits, 0, side, fp, codes);
      kernels.I_dequantize_sample(codes, side, samples);
    } else {
      II_buffer_sample(bits, 0, side, fp, codes);
      kernels.II_dequantize_sample(codes, side, samples);
    }
  }
};

FrameParams header(uint8_t b1, uint8_t b2, uint8_t b3) {
  const uint8_t bytes[4] = {0xFF, b1, b2, b3};
  FrameParams fp{};
  EXPECT_GT(parseFrameHeader(bytes, fp), 0);
  return fp;
}

// The allocation index of `levels` in a row, 0 when the row has not that many.
uint32_t indexOf(const AllocEntry *row, uint32_t levels) {
  for (uint32_t i = 1; i < 16; ++i)
    if (row[i].steps == levels) return i;
  return 0;
}

// Every code of every class, at every level, twelve granules at a time.
TEST(Dequant, Layer2EveryCode) {
  for (const CpuLevel level : levelsHere()) {
    const DecoderKernels &kernels = decoderKernelsFor(level);
    const auto stage = std::make_unique<Stage>();
    stage->fp = header(0xFD, 0xA4, 0xC0);  // 48 kHz, mono: table 0
    for (const uint32_t levels :
         {3u, 5u, 7u, 9u, 15u, 31u, 63u, 127u, 255u, 511u, 1023u, 2047u, 4095u, 8191u, 16383u, 32767u, 65535u}) {
      const uint32_t sb = indexOf(stage->fp.allocTable[3], levels) != 0 ? 3 : 0;
      const uint32_t index = indexOf(stage->fp.allocTable[sb], levels);
      ASSERT_NE(index, 0u) << levels;
      const AllocEntry entry = stage->fp.allocTable[sb][index];
      stage->side = SideInfo{};
      stage->side.allocation[0][sb] = index;
      const uint32_t last = 1u << entry.bits;
      for (uint32_t first = 0; first < last; first += kGranules) {
        BitWriterForTest writer;
        for (uint32_t g = 0; g < 12; ++g) {
          stage->side.scaleFactor[0][g / 4][sb] = (first + 7 * (g / 4)) % 63;
          const uint32_t value = (first + g) % last;
          writer.put(value, entry.bits);
          if (entry.group == 3) {
            writer.put(last - 1 - value, entry.bits);
            writer.put(value ^ 1, entry.bits);
          }
        }
        stage->run(writer.bytes, kernels);
        ASSERT_EQ(stage->codes.granules, kGranules);
        for (uint32_t g = 0; g < 12; ++g) {
          const uint32_t value = (first + g) % last;
          uint32_t codes[3] = {value, last - 1 - value, value ^ 1};
          if (entry.group == 1) {
            codes[0] = value % levels;
            codes[1] = value / levels % levels;
            codes[2] = value / (levels * levels) % levels;
          }
          for (uint32_t k = 0; k < 3; ++k) {
            const float expected = referenceFraction2(levels, codes[k]) * multiple[(first + 7 * (g / 4)) % 63];
            ASSERT_EQ(stage->samples.value[sb][12 * k + g], expected)
                << cpuLevelName(level) << ", " << levels << " levels, code " << codes[k];
          }
        }
      }
    }
  }
}

TEST(Dequant, Layer2TellingCodes) {
  const auto stage = std::make_unique<Stage>();
  stage->fp = header(0xFD, 0xA4, 0xC0);
  stage->side.allocation[0][3] = indexOf(stage->fp.allocTable[3], 3);
  BitWriterForTest writer;
  for (int g = 0; g < 12; ++g) writer.put(g == 0 ? 26 : 5, 5);
  for (auto &part : stage->side.scaleFactor[0]) part[3] = 3;  // 1.0
  stage->run(writer.bytes, decoderKernelsFor(CpuLevel::Baseline));
  const float *x = stage->samples.value[3];
  for (int k = 0; k < 3; ++k) EXPECT_EQ(x[12 * k], 0.5f * 1.3333334f);  // 26: codes 2, 2, 2
  EXPECT_EQ(x[1], 0.5f * 1.3333334f);                                   // 5: codes 2, 1, 0
  EXPECT_EQ(x[12 + 1], 0.0f);
  EXPECT_EQ(x[24 + 1], -0.5f * 1.3333334f);

  stage->side = SideInfo{};
  stage->side.allocation[0][0] = 15;  // 65535 levels
  for (auto &part : stage->side.scaleFactor[0]) part[0] = 3;
  BitWriterForTest fine;
  for (int i = 0; i < 36; ++i) fine.put(i % 2 == 0 ? 0x8000 : 0x7FFF, 16);
  stage->run(fine.bytes, decoderKernelsFor(CpuLevel::Baseline));
  const float d = 0.00003051758f, c = 1.0000153f;
  EXPECT_EQ(stage->samples.value[0][0], d * c);
  EXPECT_GT(d, 0x1p-15f);
  EXPECT_EQ(stage->samples.value[0][12], (-1.0f + 32767.0f / 32768.0f + d) * c);
}

TEST(Dequant, Layer1EveryCode) {
  for (const CpuLevel level : levelsHere()) {
    const auto stage = std::make_unique<Stage>();
    stage->fp = header(0xFF, 0x94, 0xC0);
    for (uint32_t a = 1; a < 16; ++a) {
      const uint32_t last = 2u << a;
      stage->side = SideInfo{};
      stage->side.allocation[0][31] = a;
      for (uint32_t first = 0; first < last; first += kGranules) {
        const uint32_t scale = first % 63;
        for (auto &part : stage->side.scaleFactor[0]) part[31] = scale;
        BitWriterForTest writer;
        for (uint32_t g = 0; g < 12; ++g) writer.put((first + g) % last, a + 1);
        stage->run(writer.bytes, decoderKernelsFor(level));
        for (uint32_t g = 0; g < 12; ++g)
          ASSERT_EQ(stage->samples.value[31][g], referenceFraction1(a, (first + g) % last) * multiple[scale])
              << cpuLevelName(level) << ", allocation " << a << ", code " << (first + g) % last;
      }
    }
  }
}

TEST(Dequant, Layer1TwoBitCodes) {
  const auto stage = std::make_unique<Stage>();
  stage->fp = header(0xFF, 0x94, 0xC0);
  stage->side.allocation[0][0] = 1;
  for (auto &part : stage->side.scaleFactor[0]) part[0] = 3;
  stage->run({0x1B, 0x1B, 0x1B}, decoderKernelsFor(CpuLevel::Baseline));  // 0, 1, 2, 3, ...
  const float *x = stage->samples.value[0];
  EXPECT_EQ(x[0], -2.0f / 3.0f);
  EXPECT_EQ(x[1], 0.0f);
  EXPECT_EQ(x[2], 2.0f / 3.0f);
  EXPECT_EQ(x[3], 4.0f / 3.0f);
}

TEST(Dequant, SharedCodesKeepTheirScaleFactors) {
  const auto stage = std::make_unique<Stage>();
  stage->fp = header(0xFD, 0xA0, 0x40);  // joint stereo from subband 4 on
  ASSERT_EQ(stage->fp.jsbound, 4);
  stage->side.allocation[0][5] = stage->side.allocation[1][5] = 3;  // 7 levels, or 3 bits
  stage->side.allocation[1][2] = 2;
  for (int part = 0; part < 3; ++part) {
    stage->side.scaleFactor[0][part][5] = 3;
    stage->side.scaleFactor[1][part][5] = 6;
    stage->side.scaleFactor[1][part][2] = 0;
  }
  Bytes bytes(100);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(37 * i);
  stage->run(bytes, decoderKernelsFor(detectCpuLevel()));
  EXPECT_EQ(stage->codes.grouped.count + stage->codes.shortTriples.count, 2);
  bool different = false;
  for (int i = 0; i < 36; ++i) {
    EXPECT_EQ(stage->samples.value[5][i], 2.0f * stage->samples.value[5][kChannelStride + i]);
    EXPECT_EQ(stage->samples.value[2][i], 0.0f);
    different |= stage->samples.value[5][i] != stage->samples.value[5][0];
  }
  EXPECT_TRUE(different);
}

TEST(Dequant, MonoReadsNothingForChannel1) {
  const auto stage = std::make_unique<Stage>();
  stage->fp = header(0xFD, 0xA4, 0xC0);
  stage->side.allocation[0][0] = 4;
  stage->side.allocation[1][0] = 4;
  stage->run(Bytes(100), decoderKernelsFor(detectCpuLevel()));
  ASSERT_EQ(stage->codes.shortTriples.count, 1);
  EXPECT_EQ(stage->codes.shortTriples.field[0].lastChannel, 0);
  EXPECT_EQ(stage->codes.grouped.count + stage->codes.longTriples.count, 0);
}

}  // namespace
}  // namespace qav::test
