#include <cmath>
#include <deque>
#include <numbers>

#include "converter/handle.h"
#include "tests/converter/converter_test.h"

namespace qav {
namespace {

using test::append;
using test::Bytes;
using test::bytesOf;
using test::convert;
using test::HandlePtr;
using test::item;
using test::Items;
using test::makeDetected;
using test::noise;
using test::Samples;

struct Setting {
  uint32_t inHz, outHz, channels, kbps;
};

HandlePtr makeEncoding(const Setting &s, const Items &more = {}) {
  Items items = {{QAV_ITEM_OUT_FORMAT, QAV_FORMAT_LAYER2},
                 {QAV_ITEM_IN_FREQ_HZ, s.inHz},
                 {QAV_ITEM_OUT_FREQ_HZ, s.outHz},
                 {QAV_ITEM_CHANNELS, s.channels},
                 {QAV_ITEM_KBPS, s.kbps}};
  items.insert(items.end(), more.begin(), more.end());
  return makeDetected(items);
}

const Setting kStereo = {44100, 44100, 2, 192};

size_t room(const Setting &s, size_t inBytes) { return QAV_ENCODE_OUT_BYTES(inBytes, s.inHz, s.outHz); }

// A chord, loud enough for every stage to have work.
Samples chord(size_t frames, uint32_t channels, uint32_t freqHz) {
  Samples samples;
  for (size_t i = 0; i < frames; ++i)
    for (uint32_t ch = 0; ch < channels; ++ch) {
      double y = 0;
      for (const double tone : {220.0, 554.0, 1320.0 + 40 * ch})
        y += std::sin(2 * std::numbers::pi * tone * double(i) / freqHz);
      samples.push_back(int16_t(8000 * y));
    }
  return samples;
}

struct Outcome {
  Bytes stream;
  uint32_t calls;
  bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &s, const Outcome &o) {
  return s << o.stream.size() << " bytes, " << o.calls << " calls";
}

// A whole stream in these blocks, ended.
Outcome encodeBlocks(const HandlePtr &h, const Setting &s, const std::vector<Bytes> &blocks) {
  Bytes stream;
  for (const Bytes &block : blocks) append(stream, convert(h, block, room(s, block.size())));
  append(stream, convert(h, {}, room(s, 0)));
  return {std::move(stream), item(h, QAV_ITEM_FRAME_COUNT)};
}

// The path by its definition, step by step, over plain queues, with each block resampled at once.
class Model {
 public:
  explicit Model(const Setting &s, const uint32_t *options = nullptr)
      : channels(s.channels), frameBytes(s.channels * 2304), changesRate(s.inHz != s.outHz) {
    static const uint32_t kNone[5] = {};
    EXPECT_EQ(zo_mpeg_Encode1FrameInit(&encoder, s.outHz, s.kbps, channels, options ? options : kNone), 0u);
    EXPECT_EQ(NEB_freqChangeInit(&resampler, s.inHz, s.outHz, channels, 0), 0);
  }
  ~Model() {
    zo_mpeg_Encode1FrameTerm(encoder);
    NEB_freqChangeTerm(resampler);
  }
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;

  uint32_t block(const Bytes &in, Bytes &stream) {
    input.insert(input.end(), in.begin(), in.end());
    for (;;) {
      const size_t a = input.size();
      if (!in.empty() && a < frameBytes) return 0;
      if (a == 0) return 0;
      const Bytes piece = take(input, frameBytes);
      if (const uint32_t r = fixedSize(piece, stream); r != 0) return r;
      if (in.empty()) return 0;
    }
  }

  uint32_t calls = 0;
  int state = 1;

 private:
  static Bytes take(std::deque<uint8_t> &fifo, size_t most) {
    const auto end = fifo.begin() + std::ptrdiff_t(std::min(most, fifo.size()));
    const Bytes unit(fifo.begin(), end);
    fifo.erase(fifo.begin(), end);
    return unit;
  }

  int32_t frame(const Bytes &pcm, Bytes &stream) {
    Samples samples(1152 * 2);
    std::copy_n(pcm.data(), pcm.size(), reinterpret_cast<uint8_t *>(samples.data()));
    uint8_t out[QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES];
    uint32_t n = 0;
    const int32_t r = zo_mpeg_Encode1Frame(encoder, samples.data(), uint32_t(pcm.size()) / (channels * 2), out, &n);
    ++calls;
    stream.insert(stream.end(), out, out + n);
    return r;
  }

  uint32_t fixedSize(const Bytes &piece, Bytes &stream) {
    if (state == 1) state = 2;
    const bool isShort = piece.size() != frameBytes;
    if (isShort && state != 2) return 10;
    if (isShort) state = 3;
    if (!changesRate) {
      const int32_t r = frame(piece, stream);
      return r == 0 || r == -1 ? 0 : 9;
    }
    Samples in(1152 * 2), work(27648 * 2);
    std::copy_n(piece.data(), piece.size(), reinterpret_cast<uint8_t *>(in.data()));
    uint32_t n = 0;
    NEB_freqChange(resampler, in.data(), uint32_t(piece.size()) / (channels * 2), work.data(), &n);
    const auto *const p = reinterpret_cast<const uint8_t *>(work.data());
    resampled.insert(resampled.end(), p, p + n * channels * 2);
    for (;;) {
      if (!isShort && resampled.size() < frameBytes) return 0;
      const Bytes pcm = take(resampled, frameBytes);
      const int32_t r = frame(pcm, stream);
      if (pcm.size() / (channels * 2) < 1152) return 0;
      if (r != 0) return 9;
    }
  }

  uint32_t channels, frameBytes;
  bool changesRate;
  EncoderSession *encoder = nullptr;
  FreqChangeState *resampler = nullptr;
  std::deque<uint8_t> input, resampled;
};

TEST(EncodePath, CutsDoNotShow) {
  constexpr unsigned kSeed = 8;
  std::mt19937 random(kSeed);
  const Setting settings[] = {kStereo, {48000, 48000, 1, 64}, {44100, 48000, 2, 192}, {48000, 32000, 1, 64}};
  for (const Setting &s : settings) {
    const Bytes pcm = bytesOf(chord(1152 * 4 + 333, s.channels, s.inHz));
    const Outcome whole = encodeBlocks(makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 1 << 20}}), s, {pcm});
    EXPECT_GE(whole.calls, 3u);
    for (const size_t size : {size_t(1), size_t(2), size_t(3), size_t(4608)})
      EXPECT_EQ(encodeBlocks(makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 4608}}), s, test::cut(pcm, [=] { return size; })),
                whole)
          << s.inHz << " to " << s.outHz << " Hz, blocks of " << size;
    for (int round = 0; round < 3; ++round)
      EXPECT_EQ(encodeBlocks(makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 10000}}), s,
                             test::cut(pcm, [&] { return 1 + random() % 10000; })),
                whole)
          << "seed " << kSeed;
  }
}

TEST(EncodePath, FollowsTheDefinition) {
  constexpr unsigned kSeed = 55;
  std::mt19937 random(kSeed);
  const Setting settings[] = {kStereo,
                              {32000, 32000, 1, 96},
                              {8000, 48000, 2, 128},
                              {11025, 44100, 1, 64},
                              {22050, 32000, 2, 96},
                              {48000, 44100, 2, 192},
                              {96000, 48000, 1, 64},
                              {192000, 48000, 2, 128},
                              {2000, 48000, 2, 384},
                              {2000, 48000, 1, 64},
                              {1334, 32000, 2, 64},
                              {128000, 32000, 1, 32},
                              {127999, 32000, 2, 64}};
  for (const Setting &s : settings)
    for (int round = 0; round < 2; ++round) {
      // With more than a few frames out of a block, fewer blocks do.
      const size_t frames = s.outHz / s.inHz > 4 ? 1152 + random() % 1152 : 1152 * 3 + random() % 3000;
      Bytes pcm = bytesOf(noise(frames * s.channels, unsigned(random())));
      pcm.resize(pcm.size() - random() % 4);
      const HandlePtr h = makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 8192}});
      Model model(s);
      Bytes stream, expected;
      std::vector<Bytes> blocks = test::cut(pcm, [&] { return 1 + random() % (round == 0 ? 8192 : 3000); });
      // Ends: in the middle, twice at the end, and more data after it.
      if (round == 1) blocks.insert(blocks.begin() + std::ptrdiff_t(random() % (blocks.size() + 1)), Bytes());
      for (int i = 0; i < 2; ++i) blocks.emplace_back();
      blocks.emplace_back(pcm.begin(), pcm.begin() + std::min<std::ptrdiff_t>(std::ptrdiff_t(pcm.size()), 5000));
      for (int i = 0; i < 2; ++i) blocks.emplace_back();
      for (const Bytes &block : blocks) {
        Bytes out;
        const uint32_t result = model.block(block, out);
        append(expected, out);
        append(stream, convert(h, block, room(s, block.size()), result));
        ASSERT_EQ(item(h, QAV_ITEM_FRAME_COUNT), model.calls) << "seed " << kSeed << ", " << s.inHz << " Hz";
      }
      ASSERT_TRUE(stream == expected) << "seed " << kSeed << ", " << s.inHz << " to " << s.outHz << " Hz";
    }
}

TEST(EncodePath, AWholeBlockIsAFrame) {
  const HandlePtr h = makeEncoding(kStereo);
  const Bytes pcm = bytesOf(noise(2304, 1));
  EXPECT_EQ(convert(h, pcm, room(kStereo, 4608)).size(), 627u) << "the first frame is padded";
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 1u);
  EXPECT_TRUE(convert(h, Bytes(pcm.begin(), pcm.end() - 1), 0).empty()) << "a byte is missing";
  EXPECT_EQ(convert(h, {0}, room(kStereo, 1)).size(), 627u) << "4607 and 1";
}

TEST(EncodePath, TheRemainderWaits) {
  const HandlePtr h = makeEncoding(kStereo, {{QAV_ITEM_BUFFER_SIZE, 10000}});
  const Bytes pcm = bytesOf(noise(5000, 2));
  EXPECT_EQ(convert(h, pcm, room(kStereo, 10000)).size(), 2 * 627u);
  EXPECT_EQ(NEB_bufferingGetSize(h->inputFifo), 784);
  EXPECT_EQ(h->state, State::Running);

  // The end: 196 sample frames and silence.
  const Bytes last = convert(h, {}, room(kStereo, 784));
  EXPECT_EQ(h->state, State::Ended);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 3u);
  const HandlePtr padded = makeEncoding(kStereo, {{QAV_ITEM_BUFFER_SIZE, 20000}});
  Bytes all = pcm;
  all.resize(3 * 4608);
  const Bytes stream = convert(padded, all, room(kStereo, all.size()));
  EXPECT_EQ(last, Bytes(stream.end() - std::ptrdiff_t(last.size()), stream.end()));
}

TEST(EncodePath, AnEndWithNothingLeftChangesNothing) {
  const HandlePtr h = makeEncoding(kStereo);
  EXPECT_TRUE(convert(h, {}, 0).empty());
  EXPECT_EQ(h->state, State::Detected);
  const Bytes pcm = bytesOf(noise(2304, 3));
  EXPECT_FALSE(convert(h, pcm, room(kStereo, 4608)).empty());
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(convert(h, {}, 0).empty());
  EXPECT_EQ(h->state, State::Running);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 1u);
  EXPECT_FALSE(convert(h, pcm, room(kStereo, 4608)).empty()) << "so more may follow";
}

TEST(EncodePath, AfterTheEnd) {
  const HandlePtr h = makeEncoding(kStereo);
  const Bytes whole = bytesOf(noise(2304, 4)), some(400, 1);
  convert(h, some, 0);
  EXPECT_FALSE(convert(h, {}, room(kStereo, 0)).empty());
  EXPECT_TRUE(convert(h, {}, 0).empty()) << "nothing left: no failure";
  EXPECT_FALSE(convert(h, whole, room(kStereo, 4608)).empty()) << "whole blocks are still encoded";
  convert(h, some, 0);
  EXPECT_TRUE(convert(h, {}, 0, QAV_ENDED).empty());
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 2u);
  EXPECT_TRUE(convert(h, {}, 0).empty()) << "the bytes of the refused block are lost";
}

TEST(EncodePath, StrayBytesAtTheEnd) {
  for (const Setting &s : {kStereo, Setting{48000, 44100, 2, 192}}) {
    const HandlePtr h = makeEncoding(s);
    const Bytes pcm = bytesOf(noise(2304, 5));
    if (s.inHz == s.outHz) convert(h, pcm, room(s, 4608));
    convert(h, {1, 2, 3}, 0);
    uint8_t out[8] = {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55};
    uint32_t outBytes = 77;
    const uint32_t calls = item(h, QAV_ITEM_FRAME_COUNT);
    EXPECT_EQ(QAV_convert(h.get(), nullptr, 0, out, &outBytes), 0u);
    EXPECT_EQ(outBytes, 0u);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 0x55);
    EXPECT_EQ(h->state, State::Ended);
    EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), calls + 1) << "an empty call of the frame encoder";
  }
}

TEST(EncodePath, ABlockWithoutAWholeSampleFrameStillCountsAsShort) {
  const HandlePtr h = makeEncoding({44100, 44100, 1, 64});
  convert(h, {9}, 0);
  uint8_t out[4] = {1};
  uint32_t outBytes = 5;
  EXPECT_EQ(QAV_convert(h.get(), nullptr, 0, out, &outBytes), 0u);
  EXPECT_EQ(h->state, State::Ended);
}

TEST(EncodePath, ResampledFramesComeAtTheirRate) {
  const Setting s = {32000, 48000, 2, 128};
  const HandlePtr h = makeEncoding(s);
  const Bytes pcm = bytesOf(noise(2304, 6));
  std::vector<uint32_t> frames;
  for (int block = 0; block < 6; ++block) frames.push_back(uint32_t(convert(h, pcm, room(s, 4608)).size() / 384));
  EXPECT_EQ(frames, (std::vector<uint32_t>{1, 1, 2, 1, 2, 1})) << "1727, then 1728 a block";
}

TEST(EncodePath, TheResampledRestNeedsAShortBlock) {
  const Setting s = {32000, 48000, 2, 128};
  const Bytes pcm = bytesOf(noise(2304, 7));
  const HandlePtr exact = makeEncoding(s);
  EXPECT_EQ(convert(exact, pcm, room(s, 4608)).size(), 384u);
  EXPECT_TRUE(convert(exact, {}, 0).empty()) << "575 resampled sample frames stay behind";

  const HandlePtr withMore = makeEncoding(s);
  convert(withMore, pcm, room(s, 4608));
  convert(withMore, Bytes(4), 0);
  EXPECT_EQ(convert(withMore, {}, room(s, 0)).size(), 384u);
  EXPECT_EQ(item(withMore, QAV_ITEM_FRAME_COUNT), 2u);
}

TEST(EncodePath, AShortBlockThatFillsFramesExactlyIsFollowedByAnEmptyCall) {
  // Twice as many sample frames come out, one fewer from the first block: 577 and a half of it make 1152 and 1 more.
  const Setting s = {16000, 32000, 1, 64};
  const HandlePtr h = makeEncoding(s);
  convert(h, bytesOf(noise(577, 8)), 0);
  EXPECT_EQ(convert(h, {}, room(s, 0)).size(), 288u);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 2u);
}

TEST(EncodePath, BlocksAboveTheBufferSizeAreRefused) {
  const HandlePtr h = makeEncoding(kStereo, {{QAV_ITEM_BUFFER_SIZE, 5000}});
  const Bytes in(5001);
  uint8_t out;
  uint32_t outBytes = 66;
  EXPECT_EQ(QAV_convert(h.get(), in.data(), 5001, &out, &outBytes), 7u);
  EXPECT_EQ(outBytes, 66u);
  EXPECT_EQ(NEB_bufferingGetSize(h->inputFifo), 0);
}

TEST(EncodePath, OddAddresses) {
  for (const Setting &s : {kStereo, Setting{44100, 48000, 2, 192}, Setting{48000, 48000, 1, 64}}) {
    const Bytes pcm = bytesOf(chord(1152 * 3, s.channels, s.inHz));
    const Items buffer = {{QAV_ITEM_BUFFER_SIZE, 20000}};
    const HandlePtr plain = makeEncoding(s, buffer), odd = makeEncoding(s, buffer);
    const Bytes expected = convert(plain, pcm, room(s, pcm.size()));
    Bytes in(1), out(1 + room(s, pcm.size()));
    append(in, pcm);
    uint32_t outBytes = 0;
    ASSERT_EQ(QAV_convert(odd.get(), in.data() + 1, uint32_t(pcm.size()), out.data() + 1, &outBytes), 0u);
    EXPECT_EQ(Bytes(out.begin() + 1, out.begin() + 1 + std::ptrdiff_t(outBytes)), expected);
  }
}

TEST(EncodePath, EveryRateToEveryStreamRate) {
  for (const uint32_t inHz : {8000u, 11025u, 12000u, 16000u, 22050u, 24000u, 32000u, 37800u, 44056u, 44100u, 48000u,
                              64000u, 88200u, 96000u, 128000u, 176400u, 192000u})
    for (const uint32_t outHz : {32000u, 44100u, 48000u}) {
      if (inHz > 4 * outHz) continue;
      const Setting s = {inHz, outHz, 2, 128};
      const size_t frames = inHz / 10;
      const Outcome o =
          encodeBlocks(makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 1 << 20}}), s, {bytesOf(chord(frames, 2, inHz))});
      const double seconds = double(o.calls) * 1152 / outHz;
      EXPECT_NEAR(seconds, 0.1, 2.0 * 1152 / outHz) << inHz << " to " << outHz << " Hz";
      EXPECT_NEAR(double(o.stream.size()), seconds * 16000, 500) << inHz << " to " << outHz << " Hz";
    }
}

TEST(EncodePath, GreatestRatios) {
  for (const uint32_t channels : {1u, 2u}) {
    const Setting up = {2000, 48000, channels, 384 / (3 - channels)}, down = {192000, 48000, channels, 64};
    const Bytes block = bytesOf(noise(1152 * channels, 9));
    const HandlePtr h = makeEncoding(up);
    const size_t frameBytes = up.kbps * 3;
    EXPECT_EQ(convert(h, block, room(up, block.size())).size(), 23 * frameBytes) << "24 * 1152 less 24 sample frames";
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(convert(h, block, room(up, block.size())).size(), 24 * frameBytes) << "the carry is 1128 every time";

    const HandlePtr d = makeEncoding(down);
    std::vector<size_t> frames;
    for (int i = 0; i < 9; ++i) frames.push_back(convert(d, block, room(down, block.size())).size() / 192);
    EXPECT_EQ(frames, (std::vector<size_t>{0, 0, 0, 1, 0, 0, 0, 1, 0})) << "288 sample frames a block";
  }
}

TEST(EncodePath, OptionsReachTheFrames) {
  const Items options = {{QAV_ITEM_EMPHASIS, 1},
                         {QAV_ITEM_COPYRIGHT, 1},
                         {QAV_ITEM_ORIGINAL, 1},
                         {QAV_ITEM_ERROR_PROTECTION, 1},
                         {QAV_ITEM_BYTE_SWAP, 1}};
  const Bytes pcm = bytesOf(chord(1152, 2, 44100));
  const Bytes frame = convert(makeEncoding(kStereo, options), pcm, room(kStereo, pcm.size()));
  ASSERT_EQ(frame.size(), 627u);
  EXPECT_EQ(frame[1], 0xFC) << "Layer II with a check word";
  EXPECT_EQ(frame[3], 0x0D) << "stereo, copyright, original, emphasis 1";
  const uint32_t words[5] = {1, 1, 1, 1, 1};
  Model model(kStereo, words);
  Bytes expected;
  model.block(pcm, expected);
  EXPECT_EQ(frame, expected);

  const Bytes plain = convert(makeEncoding(kStereo), pcm, room(kStereo, pcm.size()));
  EXPECT_EQ(plain[1], 0xFD) << "no check word unless it is asked for";
  EXPECT_EQ(plain[3], 0x00);
}

TEST(EncodePath, 8BitInput) {
  for (const uint32_t level : {0u, 3u}) {
    const Setting s = {22050, 44100, 1, 64};
    Bytes eight;
    for (const int16_t v : chord(6000, 1, s.inHz)) eight.push_back(uint8_t((v >> 8) + 128));
    const Items narrow = {{QAV_ITEM_BUFFER_SIZE, 9000}, {QAV_ITEM_INPUT_8BIT, 1}, {QAV_ITEM_LPF_LEVEL, level}};
    Samples wide;
    for (const uint8_t b : eight) wide.push_back(int16_t((int(b) - 128) * 256));
    if (level != 0) {
      LpfState lpf{};
      lpf.lpfLevel = level;
      ActLPF(lpf, wide.data(), 1, int32_t(wide.size()));
    }
    const HandlePtr narrowHandle = makeEncoding(s, narrow),
                    wideHandle = makeEncoding(s, {{QAV_ITEM_BUFFER_SIZE, 12000}});
    Bytes stream, expected = convert(wideHandle, bytesOf(wide), room(s, 12000));
    for (const Bytes &block : test::cut(eight, [] { return size_t(4500); }))
      append(stream, convert(narrowHandle, block, room(s, 9000)));
    append(stream, convert(narrowHandle, {}, room(s, 0)));
    append(expected, convert(wideHandle, {}, room(s, 0)));
    EXPECT_EQ(stream, expected) << "level " << level;
  }
}

}  // namespace
}  // namespace qav
