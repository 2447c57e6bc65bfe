#include <cmath>

#include "converter/handle.h"
#include "stream/stream.h"
#include "tests/converter/converter_test.h"

namespace qav {
namespace {

using test::append;
using test::Bytes;
using test::bytesOf;
using test::convert;
using test::HandlePtr;
using test::Items;
using test::losses;
using test::makeDecoding;
using test::makeDetected;
using test::makeHandle;
using test::noise;
using test::Samples;

Bytes randomBytes(size_t n, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(n);
  for (uint8_t &b : bytes) b = uint8_t(random());
  return bytes;
}

// 8-bit input of a resampling handle at equal rates comes out as it reaches any stage.
Items widening(uint32_t channels, uint32_t level, uint32_t bufferSize = 8192) {
  return {{QAV_ITEM_CHANNELS, channels},
          {QAV_ITEM_INPUT_8BIT, 1},
          {QAV_ITEM_LPF_LEVEL, level},
          {QAV_ITEM_BUFFER_SIZE, bufferSize}};
}

TEST(Dispatch, UndetectedHandleIsRefused) {
  uint8_t in[4] = {}, out[4];
  uint32_t outBytes = 7;
  EXPECT_EQ(QAV_convert(nullptr, in, 4, out, &outBytes), 9u);
  const HandlePtr h = makeHandle({});
  EXPECT_EQ(QAV_convert(h.get(), in, 4, out, &outBytes), 9u);
  EXPECT_EQ(QAV_convert(h.get(), in, 0, out, &outBytes), 9u);
  QAV_setConfigure(h.get(), QAV_ITEM_INPUT_8BIT, 1);
  EXPECT_EQ(QAV_convert(h.get(), in, 4, out, &outBytes), 9u);
  EXPECT_EQ(outBytes, 7u);
}

TEST(Dispatch, EqualRatesCopy) {
  const HandlePtr h = makeDetected({{1, 44100}, {2, 44100}});
  for (const size_t n : {size_t(1), size_t(3), size_t(4), size_t(100001)}) {
    const Bytes in = randomBytes(n, 1);
    EXPECT_EQ(convert(h, in, n), in);
  }
}

TEST(Dispatch, NoBytesToResampleLeaveTheCountAlone) {
  for (const Items &items : {Items{{1, 44100}, {2, 48000}, {4, 2}}, Items{}}) {
    const HandlePtr h = makeDetected(items);
    uint32_t outBytes = 12345;
    EXPECT_EQ(QAV_convert(h.get(), nullptr, 0, nullptr, &outBytes), 0u);
    EXPECT_EQ(outBytes, 12345u);
  }
}

TEST(Dispatch, ResamplingIsTheSampleRateConverters) {
  const Samples in = noise(20000, 3);
  for (const uint32_t channels : {1u, 2u}) {
    const HandlePtr h = makeDetected({{1, 44100}, {2, 48000}, {4, channels}});
    FreqChangeState *s = nullptr;
    ASSERT_EQ(NEB_freqChangeInit(&s, 44100, 48000, channels, 0), 0);
    Samples expected(30000);
    uint32_t frames = 0;
    NEB_freqChange(s, in.data(), 20000 / channels, expected.data(), &frames);
    NEB_freqChangeTerm(s);
    expected.resize(frames * channels);
    EXPECT_EQ(convert(h, bytesOf(in), 60000), bytesOf(expected)) << "40000 bytes at once are no matter";
  }
}

TEST(Dispatch, APartOfASampleFrameIsDropped) {
  const Bytes in = bytesOf(noise(800, 4));
  const Items items = {{1, 44100}, {2, 48000}, {4, 2}};
  const HandlePtr whole = makeDetected(items), cut = makeDetected(items);
  const Bytes expected = convert(whole, in, 4000);
  Bytes out;
  for (size_t frame = 0; frame < 400; frame += 100) {
    Bytes block(in.begin() + std::ptrdiff_t(frame * 4), in.begin() + std::ptrdiff_t(frame * 4 + 400));
    block.resize(block.size() + frame / 100, 0xEE);  // 0 to 3 stray bytes
    append(out, convert(cut, block, 1000));
  }
  EXPECT_EQ(out, expected);
  EXPECT_TRUE(convert(cut, {1, 2, 3}, 0).empty());
}

TEST(Dispatch, ResamplingAtOddAddresses) {
  const Bytes in = bytesOf(noise(800, 5));
  const Items items = {{1, 44100}, {2, 32000}, {4, 2}};
  const Bytes expected = convert(makeDetected(items), in, 4000);
  for (size_t shift = 0; shift < 4; ++shift) {
    Bytes from(shift), to(4000 + shift);
    append(from, in);
    const HandlePtr h = makeDetected(items);
    uint32_t outBytes = 0;
    ASSERT_EQ(QAV_convert(h.get(), from.data() + shift, 1600, to.data() + shift, &outBytes), 0u);
    EXPECT_EQ(Bytes(to.begin() + std::ptrdiff_t(shift), to.begin() + std::ptrdiff_t(shift + outBytes)), expected);
  }
}

TEST(Dispatch, AnOutputRateOfZeroGivesNothing) {
  const HandlePtr h = makeDetected({{1, 44100}, {2, 0}, {4, 2}});
  EXPECT_TRUE(convert(h, bytesOf(noise(800, 6)), 0).empty());
}

TEST(Dispatch, ResamplingKeepsItsOwnChannels) {
  for (const uint32_t channels : {1u, 2u}) {
    const Bytes in = bytesOf(noise(800, 7));
    const Items items = {{1, 44100}, {2, 48000}, {4, channels}};
    const HandlePtr changed = makeDetected(items);
    QAV_setConfigure(changed.get(), QAV_ITEM_CHANNELS, 3 - channels);
    EXPECT_EQ(convert(changed, in, 4000), convert(makeDetected(items), in, 4000));
  }
}

TEST(Dispatch, BytesBecomeSamples) {
  const HandlePtr h = makeDetected(widening(2, 0));
  EXPECT_EQ(convert(h, {0x00, 0x80, 0xFF}, 6), bytesOf({-32768, 0, 32512}));
  Bytes all(256);
  Samples expected(256);
  for (int i = 0; i < 256; ++i) {
    all[size_t(i)] = uint8_t(i);
    expected[size_t(i)] = int16_t((i - 128) * 256);
  }
  EXPECT_EQ(convert(h, all, 512), bytesOf(expected));
}

TEST(Dispatch, HalfTheBufferSizeIsTheLimitOf8BitInput) {
  for (const uint32_t level : {0u, 1u}) {
    const HandlePtr h = makeDetected(widening(2, level));
    EXPECT_EQ(convert(h, Bytes(4096, 0x80), 8192).size(), 8192u);
    uint8_t out;
    uint32_t outBytes = 99;
    const Bytes in(4097);
    EXPECT_EQ(QAV_convert(h.get(), in.data(), 4097, &out, &outBytes), 7u);
    EXPECT_EQ(outBytes, 99u);
  }
  EXPECT_EQ(convert(makeDetected(widening(1, 0, 9)), Bytes(4, 0x80), 8).size(), 8u);
  convert(makeDetected(widening(1, 0, 9)), Bytes(5), 0, QAV_TOO_LONG);
}

TEST(Dispatch, 8BitInputWithoutABufferSize) {
  const HandlePtr h = makeDetected({{QAV_ITEM_INPUT_8BIT, 1}});
  convert(h, {1}, 0, QAV_TOO_LONG);
  uint32_t outBytes = 5;
  EXPECT_EQ(QAV_convert(h.get(), nullptr, 0, nullptr, &outBytes), 0u);
  EXPECT_EQ(outBytes, 5u);
}

// What the filter does to widened blocks, literally: with any channel count but one it runs over as many sample frames
// as there were bytes, and so through what lies in the area behind the block.
class FilteredWidening {
 public:
  FilteredWidening(uint32_t channels, uint32_t level, size_t areaSamples)
      : step(channels == 1 ? 1 : 2), area(areaSamples) {
    row = s_delayFacTbl[level - 1].data();
  }

  Bytes block(const Bytes &in) {
    for (size_t i = 0; i < in.size(); ++i) area[i] = int16_t((int(in[i]) - 128) * 256);
    for (size_t ch = 0; ch < step; ++ch)
      for (size_t i = 0; i < in.size(); ++i) {
        float *const h = past[ch];
        h[0] = float(area[i * step + ch]);
        double acc = double(h[15]) * row[15];
        for (int k = 0; k < 15; ++k) acc += double(h[k] + h[30 - k]) * row[k];
        for (int k = 30; k > 0; --k) h[k] = h[k - 1];
        area[i * step + ch] = int16_t(uint16_t(uint32_t(int32_t(acc)) & 0xFFFF));
      }
    return bytesOf(Samples(area.begin(), area.begin() + std::ptrdiff_t(in.size())));
  }

 private:
  size_t step;
  Samples area;
  const double *row;
  float past[2][31] = {};
};

TEST(Dispatch, EveryFilterLevelOn8BitInput) {
  constexpr unsigned kSeed = 12;
  std::mt19937 random(kSeed);
  for (uint32_t level = 1; level <= 7; ++level)
    for (const uint32_t channels : {0u, 1u, 2u}) {
      Items items = widening(2, level);
      if (channels == 0)
        items.erase(items.begin());
      else
        items[0].second = channels;
      const HandlePtr h = makeDetected(items);
      FilteredWidening model(channels, level, 8192 * 4);
      for (int i = 0; i < 40; ++i) {
        const Bytes in = randomBytes(i % 4 == 0 ? random() % 4097 : random() % 60, unsigned(random()));
        if (in.empty()) continue;
        ASSERT_EQ(convert(h, in, in.size() * 2), model.block(in))
            << "seed " << kSeed << ", level " << level << ", " << channels << " channels, block " << i;
      }
    }
}

TEST(Dispatch, 8BitInputAtADifferentRate) {
  const Bytes in = randomBytes(4000, 20);
  const HandlePtr h = makeDetected({{1, 8000}, {2, 12000}, {4, 2}, {13, 1}, {14, 2}});
  FilteredWidening filter(2, 2, 8192 * 4);
  const HandlePtr wide = makeDetected({{1, 8000}, {2, 12000}, {4, 2}});
  EXPECT_EQ(convert(h, in, 20000), convert(wide, filter.block(in), 20000));
}

TEST(Dispatch, AnMpegStreamTakenFor8BitInputIsLost) {
  const HandlePtr h = makeDetected({{5, 1}, {13, 1}});
  const Bytes stream = randomBytes(1000, 21);
  EXPECT_TRUE(convert(h, stream, 0).empty());
  EXPECT_EQ(losses(h, QAV_LOSS_BAD_FRAMES), 1u);
  EXPECT_EQ(losses(h, QAV_LOSS_SKIPPED_BYTES), 2 * 1000u - 4);
}

TEST(Dispatch, ItemsChangedAfterDetection) {
  const HandlePtr late = makeDecoding();
  QAV_setConfigure(late.get(), QAV_ITEM_INPUT_8BIT, 1);
  convert(late, Bytes(10), 0, QAV_BAD_STATE);

  // The area for 8-bit input keeps its size when the buffer size is raised.
  const HandlePtr raised = makeDetected(widening(2, 1));
  QAV_setConfigure(raised.get(), QAV_ITEM_BUFFER_SIZE, 0x7FFFFFFF);
  EXPECT_EQ(convert(raised, Bytes(8192 * 2, 0x80), 8192 * 4).size(), 8192u * 4);
  convert(raised, Bytes(8192 * 2 + 1, 0x80), 0, QAV_TOO_LONG);
  convert(raised, Bytes(1 << 20, 0x80), 0, QAV_TOO_LONG);

  const HandlePtr lowered = makeDetected(widening(2, 1));
  QAV_setConfigure(lowered.get(), QAV_ITEM_BUFFER_SIZE, 10);
  convert(lowered, Bytes(6, 0x80), 0, QAV_TOO_LONG);
}

}  // namespace
}  // namespace qav
