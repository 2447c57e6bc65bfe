#include <algorithm>
#include <array>

#include "converter/handle.h"
#include "tests/converter/converter_test.h"

namespace qav {
namespace {

using test::HandlePtr;
using test::item;
using test::Items;
using test::makeDecoding;
using test::makeDetected;
using test::makeHandle;

uint32_t set(const HandlePtr &h, uint32_t which, uint32_t value) { return QAV_setConfigure(h.get(), which, value); }
uint32_t detect(const HandlePtr &h) { return QAV_detectConfigure(h.get()); }
uint32_t detectWith(const Items &items) { return detect(makeHandle(items)); }

constexpr std::pair<uint32_t, uint32_t> kToLayer2 = {QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2};

const uint32_t kSettable[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14, 17};

TEST(Config, NullHandle) {
  uint32_t value = 0;
  EXPECT_EQ(QAV_setConfigure(nullptr, 1, 1), 2u);
  EXPECT_EQ(QAV_setConfigure(nullptr, 99, 1), 2u);
  EXPECT_EQ(QAV_detectConfigure(nullptr), 9u);
  EXPECT_EQ(QAV_getConfigure(nullptr, 1, &value, nullptr), 9u);
  EXPECT_EQ(QAV_getConfigure(nullptr, 16, &value, nullptr), 0u);
  EXPECT_EQ(value, 0x09000303u);
  EXPECT_EQ(QAV_releaseConfigure(nullptr), 0u);
  EXPECT_EQ(QAV_deleteHandle(nullptr), 9u);
}

TEST(Config, ValuesThatEachItemTakes) {
  struct Case {
    uint32_t item, value, result;
  };
  const Case cases[] = {
      {1, 0, 0},           {1, 0xFFFFFFFF, 0},  {2, 0, 0},  {2, 0xFFFFFFFF, 0}, {3, 0, 0},
      {3, 0xFFFFFFFF, 0},  {4, 0, 1},           {4, 1, 0},  {4, 2, 0},          {4, 3, 1},
      {4, 0xFFFFFFFF, 1},  {5, 0, 0},           {5, 2, 0},  {5, 3, 1},          {5, 0x80000000, 1},
      {6, 0, 0},           {6, 2, 0},           {6, 3, 1},  {7, 0, 0},          {7, 1, 0},
      {7, 2, 1},           {7, 3, 0},           {7, 4, 1},  {8, 0, 0},          {8, 1, 0},
      {8, 2, 1},           {9, 0, 0},           {9, 1, 0},  {9, 2, 1},          {10, 0, 0},
      {10, 1, 0},          {10, 2, 1},          {12, 0, 1}, {12, 1, 0},         {12, 0x7FFFFFFF, 0},
      {12, 0x80000000, 1}, {12, 0xFFFFFFFF, 1}, {13, 0, 0}, {13, 1, 0},         {13, 2, 1},
      {14, 0, 0},          {14, 7, 0},          {14, 8, 1}, {17, 0, 0},         {17, 1, 0},
      {17, 2, 1},          {0, 0, 1},           {11, 0, 1}, {15, 0, 1},         {16, 0, 1},
      {18, 0, 1},          {0xFFFFFFFF, 0, 1},
  };
  const HandlePtr h = makeHandle({});
  for (const Case &c : cases) EXPECT_EQ(set(h, c.item, c.value), c.result) << "item " << c.item << " to " << c.value;
}

TEST(Config, ARefusedValueLeavesTheOldOne) {
  const HandlePtr h = makeHandle({{4, 1}, {7, 3}, {12, 20000}, {14, 6}});
  set(h, 4, 0);
  set(h, 7, 2);
  set(h, 12, 0x80000000);
  set(h, 14, 8);
  ASSERT_EQ(detect(h), 0u);
  EXPECT_EQ(item(h, 4), 1u);
  EXPECT_EQ(item(h, 7), 3u);
  EXPECT_EQ(item(h, 12), 20000u);
  EXPECT_EQ(item(h, 14), 6u);
}

TEST(Config, EveryItemReadsBack) {
  const HandlePtr h = makeDetected({{1, 44100},
                                    {2, 44100},
                                    {3, 64},
                                    {4, 1},
                                    {7, 1},
                                    {8, 1},
                                    {9, 1},
                                    {10, 1},
                                    {12, 12345},
                                    {13, 1},
                                    {14, 4},
                                    {17, 1}});
  const std::array<uint32_t, 18> expected = {0, 44100, 44100, 64,    1, 0, 0, 1,          1,
                                             1, 1,     0,     12345, 1, 4, 0, 0x09000303, 1};
  for (uint32_t i = 1; i < 18; ++i)
    if (i != QAV_ITEM_LOSSES) {
      EXPECT_EQ(item(h, i), expected[i]) << "item " << i;
    }
}

TEST(Config, ReadingBeforeDetectionAndUnknownItems) {
  const HandlePtr h = makeHandle({});
  uint32_t value = 0;
  for (const uint32_t which : {0u, 1u, 11u, 15u, 17u, 18u, 99u})
    EXPECT_EQ(QAV_getConfigure(h.get(), which, &value, &value), 9u) << which;
  EXPECT_EQ(item(h, QAV_ITEM_VERSION), QAV_VERSION);
  ASSERT_EQ(detect(h), 0u);
  for (const uint32_t which : {0u, 18u, 99u, 0xFFFFFFFFu})
    EXPECT_EQ(QAV_getConfigure(h.get(), which, &value, &value), 1u) << which;
  EXPECT_EQ(item(h, QAV_ITEM_VERSION), QAV_VERSION);
}

TEST(Config, TheSelectorOfLossesIsNoPointer) {
  const HandlePtr h = makeDecoding();
  uint32_t value = 7;
  EXPECT_EQ(QAV_getConfigure(h.get(), 15, QAV_LOSS_SKIPPED_BYTES, &value), 0u);
  EXPECT_EQ(value, 0u);
  value = 7;
  EXPECT_EQ(QAV_getConfigure(h.get(), 15, QAV_LOSS_BAD_FRAMES, &value), 0u);
  EXPECT_EQ(value, 0u);
  value = 7;
  const uintptr_t selectors[] = {2, uintptr_t(uint64_t(1) << 32), uintptr_t(uint64_t(1) << 32 | 1), UINTPTR_MAX};
  for (const uintptr_t selector : selectors)
    if (selector > 1) {
      EXPECT_EQ(QAV_getConfigure(h.get(), 15, reinterpret_cast<uint32_t *>(selector), &value), 1u);
    }
  EXPECT_EQ(value, 7u);
}

TEST(Config, PairsOfFormats) {
  for (uint32_t in = 0; in < 3; ++in)
    for (uint32_t out = 0; out < 3; ++out) {
      const bool known = (in == 0 && out == 2) || (in == 1 && out == 0) || (in == 0 && out == 0);
      EXPECT_EQ(detectWith({{5, in}, {6, out}}), known ? (out == 2 ? 8u : 0u) : 4u) << in << " to " << out;
    }
}

TEST(Config, DecodingWantsEqualRates) {
  EXPECT_EQ(detectWith({{5, 1}, {1, 44100}}), 4u);
  EXPECT_EQ(detectWith({{5, 1}, {2, 44100}}), 4u);
  EXPECT_EQ(detectWith({{5, 1}, {1, 7}, {2, 7}}), 0u);
  EXPECT_EQ(item(makeDecoding(), 12), 8192u);
  EXPECT_EQ(item(makeDetected({{5, 1}, {12, 8193}}), 12), 8193u);
  EXPECT_EQ(item(makeDetected({{5, 1}, {12, 8191}}), 12), 8192u);
}

TEST(Config, ResamplingWantsChannelsAndARateInRange) {
  EXPECT_EQ(detectWith({{1, 44100}, {2, 48000}}), 1u) << "no default for channels";
  EXPECT_EQ(detectWith({{1, 3999}, {2, 48000}, {4, 2}}), 1u);
  EXPECT_EQ(detectWith({{1, 4000}, {2, 48000}, {4, 2}}), 0u);
  EXPECT_EQ(detectWith({{1, 96000}, {2, 48000}, {4, 1}}), 0u);
  EXPECT_EQ(detectWith({{1, 96001}, {2, 48000}, {4, 1}}), 1u);
  EXPECT_EQ(detectWith({{1, 44100}, {2, 0}, {4, 1}}), 0u) << "the output rate is not checked";
  EXPECT_EQ(item(makeDetected({{1, 44100}, {2, 48000}, {4, 1}}), 12), 8192u);
  EXPECT_EQ(item(makeDetected({{1, 44100}, {2, 48000}, {4, 1}, {12, 9000}}), 12), 9000u);
}

TEST(Config, ResamplingAtEqualRatesChecksNothing) {
  EXPECT_EQ(detectWith({}), 0u);
  EXPECT_EQ(detectWith({{1, 1}, {2, 1}}), 0u);
  EXPECT_EQ(item(makeDetected({}), 12), 0u);
  EXPECT_EQ(item(makeDetected({}), 4), 0u);
  EXPECT_EQ(detectWith({{13, 1}}), 0u) << "an empty area for 8-bit input is no failure";
}

TEST(Config, EncodingDefaults) {
  const HandlePtr h = makeDetected({{1, 44100}, kToLayer2});
  EXPECT_EQ(item(h, 3), 128u);
  EXPECT_EQ(item(h, 4), 2u);
  EXPECT_EQ(item(h, 2), 44100u);
  EXPECT_EQ(item(h, 12), 4608u);
  EXPECT_EQ(h->frameBytes, 4608u);
  EXPECT_EQ(item(makeDetected({{1, 44100}, {4, 1}, kToLayer2}), 12), 2304u);
  EXPECT_EQ(item(makeDetected({{1, 44100}, {12, 5000}, kToLayer2}), 12), 5000u);
}

TEST(Config, EncodingRates) {
  EXPECT_EQ(detectWith({kToLayer2}), 8u);
  EXPECT_EQ(detectWith({{2, 44100}, kToLayer2}), 8u) << "the input rate has no default";
  EXPECT_EQ(detectWith({{1, 44100}, {2, 22050}, kToLayer2}), 8u);
  EXPECT_EQ(detectWith({{1, 22050}, kToLayer2}), 8u) << "the default output rate is the input's";
  for (const uint32_t out : {32000u, 44100u, 48000u}) {
    EXPECT_EQ(detectWith({{1, out}, kToLayer2}), 0u);
    EXPECT_EQ(detectWith({{1, 4 * out}, {2, out}, kToLayer2}), 0u);
    EXPECT_EQ(detectWith({{1, 4 * out + 1}, {2, out}, kToLayer2}), 1u);
    const uint32_t least = (out + 23) / 24;
    EXPECT_EQ(detectWith({{1, least}, {2, out}, kToLayer2}), 0u);
    EXPECT_EQ(detectWith({{1, least - 1}, {2, out}, kToLayer2}), 1u);
    EXPECT_EQ(detectWith({{1, 0xFFFFFFFF}, {2, out}, kToLayer2}), 1u);
    EXPECT_EQ(detectWith({{1, 1}, {2, out}, kToLayer2}), 1u);
  }
}

TEST(Config, EncodingBitrates) {
  const uint32_t layer2[] = {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
  for (uint32_t kbps = 1; kbps <= 400; ++kbps) {
    const auto listed = [&](uint32_t k) { return std::find(layer2, layer2 + 14, k) != layer2 + 14; };
    EXPECT_EQ(detectWith({{1, 44100}, {3, kbps}, kToLayer2}), listed(kbps) ? 0u : 1u) << "stereo " << kbps;
    // One channel takes half of a listed bitrate; where that is itself none, no encoder can be made.
    EXPECT_EQ(detectWith({{1, 44100}, {3, kbps}, {4, 1}, kToLayer2}), !listed(2 * kbps) ? 1u
                                                                      : listed(kbps)    ? 0u
                                                                                        : 9u)
        << "mono " << kbps;
  }
  EXPECT_EQ(detectWith({{1, 44100}, {3, 0x80000020}, kToLayer2}), 1u) << "twice that wraps to 64";
  EXPECT_EQ(detectWith({{1, 44100}, {3, 0x80000020}, {4, 1}, kToLayer2}), 1u);
}

TEST(Config, CorrectParameters) {
  EXPECT_TRUE(isCorrectMpegParam(22050, 8, 2)) << "low sampling frequencies";
  EXPECT_FALSE(isCorrectMpegParam(22050, 384, 2));
  EXPECT_TRUE(isCorrectMpegParam(16000, 4, 1));
  EXPECT_FALSE(isCorrectMpegParam(44100, 128, 0));
  EXPECT_FALSE(isCorrectMpegParam(44100, 128, 3));
  EXPECT_FALSE(isCorrectMpegParam(11025, 64, 2));
  EXPECT_FALSE(isCorrectMpegParam(0, 0, 2));
  EXPECT_FALSE(isCorrectMpegParam(44100, 0, 1)) << "free format is no bitrate";
  EXPECT_FALSE(isCorrectMpegParam(0x80000000u, 64, 2));
}

TEST(Config, OrderOfRefusals) {
  EXPECT_EQ(detectWith({{1, 0}, {2, 22050}, {3, 1}, kToLayer2}), 8u);
  EXPECT_EQ(detectWith({{1, 1}, {2, 22050}, {3, 1}, kToLayer2}), 8u);
  EXPECT_EQ(detectWith({{1, 44100}, {3, 28}, {4, 1}, kToLayer2}), 9u);
}

TEST(Config, AFailedDetectionKeepsItsDefaults) {
  const HandlePtr h = makeHandle({{1, 22050}, kToLayer2});
  EXPECT_EQ(detect(h), 8u);
  set(h, 1, 44100);
  EXPECT_EQ(detect(h), 8u) << "22050 Hz has become the output rate";
  set(h, 2, 44100);
  EXPECT_EQ(detect(h), 0u);
  EXPECT_EQ(item(h, 3), 128u);
}

TEST(Config, DetectionHappensOnce) {
  for (const Items &items : {Items{kToLayer2, {1, 44100}}, Items{{5, 1}}, Items{}}) {
    const HandlePtr h = makeDetected(items);
    EXPECT_EQ(detect(h), 9u);
    EXPECT_EQ(item(h, 11), 0u) << "still usable";
  }
}

TEST(Config, ReleaseForgetsEverything) {
  const HandlePtr h = makeDetected({{1, 44100}, {3, 64}, {12, 9999}, {13, 1}, {14, 3}, {7, 1}, kToLayer2});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(QAV_releaseConfigure(h.get()), 0u);
  uint32_t value;
  EXPECT_EQ(QAV_getConfigure(h.get(), 1, &value, nullptr), 9u);
  ASSERT_EQ(detect(h), 0u) << "nothing set: PCM to PCM at equal rates";
  for (const uint32_t which : kSettable) EXPECT_EQ(item(h, which), 0u) << "item " << which;
}

TEST(Config, SettingAfterDetection) {
  const HandlePtr encoding = makeDetected({{1, 44100}, kToLayer2});
  for (const uint32_t which : kSettable) EXPECT_EQ(set(encoding, which, 1), 1u) << which;
  const HandlePtr decoding = makeDecoding();
  for (const uint32_t which : kSettable) EXPECT_EQ(set(decoding, which, 1), 0u) << which;
  const HandlePtr resampling = makeDetected({{1, 44100}, {2, 48000}, {4, 2}});
  for (const uint32_t which : kSettable) EXPECT_EQ(set(resampling, which, 1), 0u) << which;
  QAV_releaseConfigure(encoding.get());
  EXPECT_EQ(set(encoding, 1, 1), 0u);
}

}  // namespace
}  // namespace qav
