#include <cstdlib>
#include <cstring>
#include <deque>

#include "tests/converter/converter_test.h"

namespace qav {
namespace {

using test::append;
using test::Bytes;
using test::convert;
using test::HandlePtr;
using test::item;
using test::losses;
using test::makeDecoding;
using test::makeDetected;
using test::testData;

const char *const kStreams[] = {"l2_stereo_44k_192_crc.mp2", "l2_joint_44k_128.mp2",      "l2_joint_48k_64_crc.mp2",
                                "l2_mono_lsf_22k_56.mp2",    "l2_dual_48k_256.mp2",       "l1_stereo_32k_320.mp1",
                                "l1_joint_44k_192_crc.mp1",  "l2_garbage_44k_128_crc.mp2"};

// Everything a caller can see of a decoded stream.
struct Outcome {
  Bytes pcm;
  uint32_t frames, skippedBytes, badFrames, freqHz, channels;
  bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &s, const Outcome &o) {
  return s << o.pcm.size() << " bytes, " << o.frames << " frames, " << o.skippedBytes << " skipped, " << o.badFrames
           << " bad, " << o.freqHz << " Hz, " << o.channels << " channels";
}

Outcome outcome(const HandlePtr &h, Bytes pcm) {
  return {std::move(pcm),
          item(h, QAV_ITEM_FRAME_COUNT),
          losses(h, QAV_LOSS_SKIPPED_BYTES),
          losses(h, QAV_LOSS_BAD_FRAMES),
          item(h, QAV_ITEM_IN_FREQ_HZ),
          item(h, QAV_ITEM_CHANNELS)};
}

Outcome decodeBlocks(const std::vector<Bytes> &blocks) {
  const HandlePtr h = makeDecoding();
  Bytes pcm;
  for (const Bytes &block : blocks) append(pcm, convert(h, block, QAV_DECODE_OUT_BYTES(block.size())));
  return outcome(h, std::move(pcm));
}

// The frames of a stream without garbage.
std::vector<Bytes> framesOf(const Bytes &stream) {
  DecoderSession *session = nullptr;
  zo_mpeg_Decode1FrameInit(&session);
  std::vector<Bytes> frames;
  for (auto at = stream.begin(); at != stream.end();) {
    const int32_t size = NEB_mpeg_get1FrameSize(&*at, session);
    EXPECT_GT(size, 0);
    frames.emplace_back(at, at + size);
    at += size;
  }
  zo_mpeg_Decode1FrameTerm(session);
  return frames;
}

Bytes part(const Bytes &bytes, size_t from, size_t to) {
  return {bytes.begin() + std::ptrdiff_t(from), bytes.begin() + std::ptrdiff_t(to)};
}

Outcome decodeInBlocksOf(const Bytes &stream, size_t blockBytes) {
  return decodeBlocks(test::cut(stream, [=] { return blockBytes; }));
}

// The path by its definition, step by step, over a plain queue.
class Model {
 public:
  Model() { zo_mpeg_Decode1FrameInit(&decoder); }
  ~Model() { zo_mpeg_Decode1FrameTerm(decoder); }
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;

  Bytes block(const Bytes &in) {
    Bytes out;
    if (in.empty()) {
      state = 3;
      return out;
    }
    fifo.insert(fifo.end(), in.begin(), in.end());
    for (;;) {
      if (resync == 1 && !fifo.empty()) hunt();
      for (;;) {
        if (fifo.size() < 4) return out;
        if (frameBytes == 0) {
          const Bytes header = take(4);
          const int32_t size = NEB_mpeg_get1FrameSize(header.data(), decoder);
          if (size == -1) {
            ++badFrames;
            syncBytes = header;
            break;
          }
          frameBytes = size_t(size) - 4;
          start(header);
        }
        if (fifo.size() < frameBytes) return out;
        const Bytes body = take(frameBytes);
        int16_t pcm[2304];
        uint32_t n = 0;
        if (zo_mpeg_Decode1FrameWithoutHeader(decoder, body.data(), uint32_t(body.size()), pcm, &n) != 0) {
          syncBytes = Bytes(4);
          skippedBytes += uint32_t(frameBytes) + 4;
          ++badFrames;
          break;
        }
        ++frameCount;
        frameBytes = 0;
        const auto *const p = reinterpret_cast<const uint8_t *>(pcm);
        out.insert(out.end(), p, p + n);
      }
      resync = 1;
    }
  }

  Outcome outcome(Bytes pcm) const { return {std::move(pcm), frameCount, skippedBytes, badFrames, freqHz, channels}; }

 private:
  Bytes take(size_t n) {
    const Bytes unit(fifo.begin(), fifo.begin() + std::ptrdiff_t(n));
    fifo.erase(fifo.begin(), fifo.begin() + std::ptrdiff_t(n));
    return unit;
  }

  void start(const Bytes &header) {
    if (state != 1) return;
    state = 2;
    channels = NEB_mpeg_getChannel(decoder);
    freqHz = NEB_mpeg_getFreqHz(decoder);
    refHeader = header;
  }

  void hunt() {
    for (size_t n = fifo.size(); n > 0; --n) {
      syncBytes.erase(syncBytes.begin());
      syncBytes.push_back(take(1)[0]);
      ++skippedBytes;
      if (syncBytes[0] != 0xFF || (syncBytes[1] & 0xF0) != 0xF0) continue;
      bool tried = false;
      if (state == 1) tried = true;
      if (state == 2) tried = syncBytes[1] == refHeader[1] && (syncBytes[2] & 0xFC) == (refHeader[2] & 0xFC);
      if (!tried) continue;
      const int32_t size = NEB_mpeg_get1FrameSize(syncBytes.data(), decoder);
      if (size == -1) continue;
      frameBytes = size_t(size) - 4;
      resync = 0;
      start(syncBytes);
      return;
    }
  }

  DecoderSession *decoder = nullptr;
  std::deque<uint8_t> fifo;
  int state = 1, resync = 0;
  size_t frameBytes = 0;
  Bytes syncBytes = Bytes(4), refHeader = Bytes(4);
  uint32_t frameCount = 0, skippedBytes = 0, badFrames = 0, channels = 0, freqHz = 0;
};

TEST(DecodePath, CutsDoNotShow) {
  constexpr unsigned kSeed = 31;
  std::mt19937 random(kSeed);
  for (const char *const name : kStreams) {
    const Bytes stream = testData(name);
    const Outcome whole = decodeInBlocksOf(stream, 8192);
    EXPECT_GT(whole.frames, 0u) << name;
    EXPECT_EQ(decodeInBlocksOf(stream, 1), whole) << name;
    EXPECT_EQ(decodeInBlocksOf(stream, 3), whole) << name;
    for (int round = 0; round < 5; ++round) {
      const size_t most = 1 + random() % 2000;
      EXPECT_EQ(decodeBlocks(test::cut(stream, [&] { return 1 + random() % most; })), whole)
          << name << ", seed " << kSeed;
    }
  }
}

TEST(DecodePath, OneCallForAWholeStream) {
  for (const char *const name : kStreams) {
    const Bytes stream = testData(name);
    const HandlePtr h = makeDetected({{5, 1}, {QAV_ITEM_BUFFER_SIZE, uint32_t(stream.size())}});
    EXPECT_EQ(outcome(h, convert(h, stream, QAV_DECODE_OUT_BYTES(stream.size()))), decodeInBlocksOf(stream, 1000))
        << name;
  }
}

TEST(DecodePath, ExampleStreams) {
  struct Case {
    const char *name;
    uint32_t frames, skipped, bad, freqHz, channels;
  };
  const Case cases[] = {
      {"l2_stereo_44k_192_crc", 30, 0, 0, 44100, 2}, {"l2_joint_44k_128", 30, 0, 0, 44100, 2},
      {"l2_joint_48k_64_crc", 24, 0, 0, 48000, 2},   {"l2_mono_lsf_22k_56", 30, 0, 0, 22050, 1},
      {"l2_dual_48k_256", 20, 0, 0, 48000, 2},       {"l2_garbage_44k_128_crc", 19, 459, 2, 44100, 2}};
  for (const Case &c : cases) {
    const Outcome o = decodeInBlocksOf(testData(std::string(c.name) + ".mp2"), 4096);
    EXPECT_EQ(o.frames, c.frames) << c.name;
    EXPECT_EQ(o.skippedBytes, c.skipped) << c.name;
    EXPECT_EQ(o.badFrames, c.bad) << c.name;
    EXPECT_EQ(o.freqHz, c.freqHz) << c.name;
    EXPECT_EQ(o.channels, c.channels) << c.name;
    // The order of the matrixing sums is free.
    const Bytes expected = testData(std::string(c.name) + ".s16");
    ASSERT_EQ(o.pcm.size(), expected.size()) << c.name;
    size_t different = 0;
    for (size_t i = 0; i < expected.size(); i += 2) {
      int16_t sample;  // in the machine's order; the file has the lower byte first
      std::memcpy(&sample, &o.pcm[i], sizeof sample);
      const int wanted = int16_t(expected[i] | expected[i + 1] << 8);
      ASSERT_LE(std::abs(sample - wanted), 1) << c.name << ", sample " << i / 2;
      different += sample != wanted ? 1 : 0;
    }
    EXPECT_LE(double(different), 5e-4 * double(expected.size() / 2)) << c.name;
  }
}

// Streams with bytes changed, lost, put in and repeated, in random blocks, ends among them.
TEST(DecodePath, DamagedStreamsFollowTheDefinition) {
  constexpr unsigned kSeed = 1234;
  std::mt19937 random(kSeed);
  uint32_t bad = 0;
  for (int round = 0; round < 120; ++round) {
    Bytes stream = testData(kStreams[size_t(round) % std::size(kStreams)]);
    stream.resize(std::min(stream.size(), size_t(4000)));
    for (auto damage = random() % 6; damage > 0; --damage) {
      const auto at = stream.begin() + std::ptrdiff_t(random() % stream.size());
      const std::ptrdiff_t room = std::min<std::ptrdiff_t>(stream.end() - at, 1 + std::ptrdiff_t(random() % 40));
      switch (random() % 5) {
        case 0: *at = uint8_t(random()); break;
        case 1: *at ^= uint8_t(1u << random() % 8); break;
        case 2: stream.erase(at, at + room); break;
        case 3: std::fill(at, at + room, uint8_t(random() % 2 ? 0xFF : 0x00)); break;
        default: {
          const Bytes some(at, at + room);
          stream.insert(stream.begin() + std::ptrdiff_t(random() % stream.size()), some.begin(), some.end());
        }
      }
      if (stream.empty()) stream.push_back(0xFF);
    }
    const HandlePtr h = makeDecoding();
    Model model;
    Bytes pcm, expected;
    const size_t most = random() % 2 ? 5 : 1500;
    const bool endsEarly = random() % 4 == 0;
    for (const Bytes &block : test::cut(stream, [&] { return 1 + random() % most; })) {
      append(pcm, convert(h, block, QAV_DECODE_OUT_BYTES(block.size())));
      append(expected, model.block(block));
      if (endsEarly && random() % 20 == 0) {
        EXPECT_TRUE(convert(h, {}, 0).empty());
        model.block({});
      }
      ASSERT_EQ(outcome(h, {}), model.outcome({})) << "seed " << kSeed << ", round " << round;
    }
    ASSERT_TRUE(pcm == expected) << "seed " << kSeed << ", round " << round;
    bad += losses(h, QAV_LOSS_BAD_FRAMES);
  }
  EXPECT_GT(bad, 100u) << "the damage must show";
}

TEST(DecodePath, NoiseFollowsTheDefinition) {
  constexpr unsigned kSeed = 77;
  std::mt19937 random(kSeed);
  for (int round = 0; round < 30; ++round) {
    Bytes stream(6000);
    for (uint8_t &b : stream) b = random() % 3 == 0 ? uint8_t(0xFF - random() % 6) : uint8_t(random());
    const HandlePtr h = makeDecoding();
    Model model;
    for (const Bytes &block : test::cut(stream, [&] { return 1 + random() % 900; }))
      ASSERT_EQ(convert(h, block, QAV_DECODE_OUT_BYTES(block.size())), model.block(block)) << "seed " << kSeed;
    ASSERT_EQ(outcome(h, {}), model.outcome({})) << "seed " << kSeed;
  }
}

TEST(DecodePath, OneByteOfGarbageAtTheStart) {
  const Bytes stream = testData("l2_stereo_44k_192_crc.mp2");
  const Outcome clean = decodeInBlocksOf(stream, 8192);
  Bytes dirty = {0x00};
  append(dirty, stream);
  for (const size_t blockBytes : {size_t(1), size_t(700), size_t(8192)}) {
    const Outcome o = decodeInBlocksOf(dirty, blockBytes);
    EXPECT_EQ(o.badFrames, 1u);
    EXPECT_EQ(o.skippedBytes, 1u) << "the header's fourth byte; the first three were read as a header";
    EXPECT_EQ(o.frames, clean.frames);
    EXPECT_EQ(o.pcm, clean.pcm);
  }
}

TEST(DecodePath, ThreeBytesWait) {
  const Bytes frame = framesOf(testData("l2_stereo_44k_192_crc.mp2"))[0];
  const HandlePtr h = makeDecoding();
  EXPECT_TRUE(convert(h, part(frame, 0, 3), 0).empty());
  EXPECT_EQ(item(h, QAV_ITEM_IN_FREQ_HZ), 0u);
  EXPECT_EQ(convert(h, part(frame, 3, frame.size()), 4608).size(), 4608u);
}

TEST(DecodePath, AFrameOverTwoBlocksComesWithTheSecond) {
  const Bytes frame = framesOf(testData("l2_dual_48k_256.mp2"))[0];
  const HandlePtr h = makeDecoding();
  EXPECT_TRUE(convert(h, part(frame, 0, frame.size() - 1), 0).empty());
  EXPECT_EQ(item(h, QAV_ITEM_IN_FREQ_HZ), 48000u) << "known from the header";
  EXPECT_EQ(item(h, QAV_ITEM_CHANNELS), 2u);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 0u);
  EXPECT_EQ(convert(h, part(frame, frame.size() - 1, frame.size()), 4608).size(), 4608u);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 1u);
}

TEST(DecodePath, BlocksAboveTheBufferSizeAreRefused) {
  const HandlePtr h = makeDecoding();
  const Bytes in(8193, 0xFF);
  uint8_t out;
  uint32_t outBytes = 55;
  EXPECT_EQ(QAV_convert(h.get(), in.data(), 8193, &out, &outBytes), 7u);
  EXPECT_EQ(outBytes, 55u);
  EXPECT_EQ(losses(h, QAV_LOSS_BAD_FRAMES), 0u) << "nothing was consumed";
}

TEST(DecodePath, TheEndDropsAPartialFrame) {
  const Bytes stream = testData("l2_dual_48k_256.mp2");
  const HandlePtr h = makeDecoding();
  convert(h, part(stream, 0, 1000), 4608);
  uint8_t out = 0x77;
  uint32_t outBytes = 55;
  EXPECT_EQ(QAV_convert(h.get(), nullptr, 0, &out, &outBytes), 0u);
  EXPECT_EQ(outBytes, 0u);
  EXPECT_EQ(out, 0x77);
  EXPECT_EQ(item(h, QAV_ITEM_FRAME_COUNT), 1u);
  EXPECT_EQ(losses(h, QAV_LOSS_SKIPPED_BYTES), 0u);
}

TEST(DecodePath, AfterTheEndOnlyFramesInStepAreDecoded) {
  const std::vector<Bytes> frames = framesOf(testData("l2_dual_48k_256.mp2"));
  const HandlePtr h = makeDecoding();
  convert(h, {}, 0);
  EXPECT_EQ(convert(h, frames[0], 4608).size(), 4608u);
  EXPECT_EQ(item(h, QAV_ITEM_IN_FREQ_HZ), 0u) << "the first header came too late to be asked";
  EXPECT_EQ(item(h, QAV_ITEM_CHANNELS), 0u);
  Bytes dirty = {0x00};
  append(dirty, frames[1]);
  EXPECT_TRUE(convert(h, dirty, 4608).empty());
  EXPECT_EQ(losses(h, QAV_LOSS_BAD_FRAMES), 1u);
  EXPECT_EQ(losses(h, QAV_LOSS_SKIPPED_BYTES), frames[1].size() - 3);
}

// How many frames come out of a first frame, four bytes that are no header, and a second frame.
uint32_t framesAround(const Bytes &first, const Bytes &second) {
  Bytes stream = first;
  append(stream, {0, 0, 0, 0});
  append(stream, second);
  return decodeInBlocksOf(stream, 8192).frames;
}

TEST(DecodePath, TheHuntWantsTheFirstFramesRates) {
  Bytes frame;
  for (const Bytes &f : framesOf(testData("l2_joint_44k_128.mp2")))
    if (f.size() == 417) frame = f;
  ASSERT_EQ(frame.size(), 417u);
  const auto changed = [&](size_t at, int bits, size_t size) {
    Bytes other = frame;
    other[at] = uint8_t(other[at] ^ bits);
    other.resize(size);
    return other;
  };
  EXPECT_EQ(framesAround(frame, frame), 2u);
  EXPECT_EQ(framesAround(frame, changed(2, 0x02, 418)), 2u) << "padding may differ";
  EXPECT_EQ(framesAround(frame, changed(2, 0x01, 417)), 2u) << "and the private bit";
  EXPECT_EQ(framesAround(frame, changed(3, 0x0C, 417)), 2u) << "and all of the fourth byte";
  EXPECT_EQ(framesAround(frame, changed(2, 0x10, 522)), 1u) << "160 kbit/s";
  EXPECT_EQ(framesAround(frame, changed(2, 0x04, 384)), 1u) << "48000 Hz";
  EXPECT_EQ(framesAround(frame, changed(1, 0x08, 800)), 1u) << "low sampling frequencies";
  EXPECT_EQ(framesAround(frame, changed(1, 0x01, 417)), 1u) << "with a check word";
}

TEST(DecodePath, AFrameInStepMayHaveOtherRates) {
  Bytes stream = testData("l2_dual_48k_256.mp2");
  append(stream, testData("l2_stereo_44k_192_crc.mp2"));
  const Outcome o = decodeInBlocksOf(stream, 4096);
  EXPECT_EQ(o.frames, 50u);
  EXPECT_EQ(o.badFrames, 0u);
  EXPECT_EQ(o.freqHz, 48000u) << "the first frame's";
}

TEST(DecodePath, ARefusedFrameCountsWhole) {
  std::vector<Bytes> frames = framesOf(testData("l2_joint_48k_64_crc.mp2"));
  frames[1][4] = uint8_t(frames[1][4] ^ 0xFF);  // the check word
  Bytes stream;
  for (const Bytes &frame : frames) append(stream, frame);
  const Outcome o = decodeInBlocksOf(stream, 8192);
  EXPECT_EQ(o.frames, 23u);
  EXPECT_EQ(o.badFrames, 1u);
  EXPECT_EQ(o.skippedBytes, frames[1].size() + 4) << "and the hunt takes the next header";
}

TEST(DecodePath, ARefusedFramesHeaderIsForgotten) {
  // Found by the hunt and refused; its last byte would make a header of what follows.
  Bytes frame(144 * 32 / 48);
  const Bytes header = {0xFF, 0xFC, 0x14, 0xFF};
  std::copy(header.begin(), header.end(), frame.begin());
  frame[4] = 0x12;  // no check word of an empty frame
  Bytes stream(4);
  append(stream, frame);
  append(stream, {0xFC, 0x14, 0x00});
  stream.resize(stream.size() + 200);
  const Outcome o = decodeInBlocksOf(stream, 8192);
  EXPECT_EQ(o.frames, 0u);
  EXPECT_EQ(o.badFrames, 2u) << "the garbage and the frame";
  EXPECT_EQ(o.skippedBytes, stream.size()) << "but for the garbage; the header twice";
}

TEST(DecodePath, OutputAtOddAddresses) {
  const Bytes stream = testData("l2_garbage_44k_128_crc.mp2");
  const Bytes expected = decodeInBlocksOf(stream, 8192).pcm;
  const HandlePtr h = makeDetected({{5, 1}, {QAV_ITEM_BUFFER_SIZE, 10000}});
  Bytes in(1), out(1 + QAV_DECODE_OUT_BYTES(stream.size()));
  append(in, stream);
  uint32_t outBytes = 0;
  ASSERT_EQ(QAV_convert(h.get(), in.data() + 1, uint32_t(stream.size()), out.data() + 1, &outBytes), 0u);
  EXPECT_EQ(Bytes(out.begin() + 1, out.begin() + 1 + std::ptrdiff_t(outBytes)), expected);
}

TEST(DecodePath, AConfiguredRateIsOverwritten) {
  const HandlePtr h = makeDetected({{5, 1}, {1, 8000}, {2, 8000}, {4, 1}});
  EXPECT_EQ(item(h, QAV_ITEM_IN_FREQ_HZ), 8000u);
  convert(h, part(testData("l2_dual_48k_256.mp2"), 0, 4), 0);
  EXPECT_EQ(item(h, QAV_ITEM_IN_FREQ_HZ), 48000u);
  EXPECT_EQ(item(h, QAV_ITEM_CHANNELS), 2u);
}

TEST(DecodePath, ABlockThatTheQueueCannotTakeVanishes) {
  const HandlePtr h = makeDecoding();
  QAV_setConfigure(h.get(), QAV_ITEM_BUFFER_SIZE, 1 << 20);
  EXPECT_TRUE(convert(h, testData("l2_stereo_44k_192_crc.mp2"), 0).empty());
  EXPECT_EQ(losses(h, QAV_LOSS_BAD_FRAMES), 0u);
  Bytes in = testData("l2_stereo_44k_192_crc.mp2");
  in.resize(8192);
  EXPECT_FALSE(convert(h, in, QAV_DECODE_OUT_BYTES(8192)).empty());
}

TEST(DecodePath, ReleasedHandleStartsAfresh) {
  const Bytes stream = testData("l2_garbage_44k_128_crc.mp2");
  const HandlePtr h = makeDecoding();
  convert(h, part(stream, 0, 5000), QAV_DECODE_OUT_BYTES(5000));
  QAV_releaseConfigure(h.get());
  QAV_setConfigure(h.get(), QAV_ITEM_IN_FORMAT, QAV_FORMAT_MPEG);
  ASSERT_EQ(QAV_detectConfigure(h.get()), 0u);
  Bytes pcm;
  for (const Bytes &block : test::cut(stream, [] { return size_t(4096); }))
    append(pcm, convert(h, block, QAV_DECODE_OUT_BYTES(4096)));
  EXPECT_EQ(outcome(h, pcm), decodeInBlocksOf(stream, 8192));
}

}  // namespace
}  // namespace qav
