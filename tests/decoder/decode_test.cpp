// Whole frames: streams with known PCM, random frames against the reference decoder, and what the results promise.
#include <gtest/gtest.h>

#include <cstring>

#include "format/format.h"
#include "tests/decoder/decoder_fixture.h"
#include "tests/support/one_in.h"

namespace qav::test {
namespace {

constexpr uint32_t kOk = QAV_DECODE_OK, kRefused = QAV_DECODE_REFUSED, kIncomplete = QAV_DECODE_INCOMPLETE;

struct Stream {
  const char *name, *suffix;
};

void PrintTo(const Stream &stream, std::ostream *out) { *out << stream.name; }

class DecodeStream : public testing::TestWithParam<Stream> {};

// Another decoder's sums have another order: one sample in a thousand may differ, by one.
TEST_P(DecodeStream, GivesTheKnownPcmOnEveryLevel) {
  const std::string name = GetParam().name;
  const Samples truth = readPcm(name + ".s16");
  Samples first;
  for (const CpuLevel level : levelsHere()) {
    const DecoderPtr s = makeDecoder(level);
    Samples pcm;
    for (const Bytes &frame : framesOf(readFile(name + GetParam().suffix))) {
      const Decoded d = decodeFrame(s.get(), frame);
      ASSERT_EQ(d.result, kOk);
      ASSERT_EQ(d.consumed, frame.size());
      const uint32_t perChannel = s->frame.layer == 1 ? 768 : 2304;
      ASSERT_EQ(d.outBytes, perChannel * NEB_mpeg_getChannel(s.get()));
      pcm.insert(pcm.end(), d.pcm.begin(), d.pcm.begin() + d.outBytes / 2);
    }
    ASSERT_EQ(pcm.size(), truth.size());
    size_t different = 0;
    for (size_t i = 0; i < pcm.size(); ++i) {
      ASSERT_LE(std::abs(pcm[i] - truth[i]), 1) << "sample " << i;
      different += pcm[i] != truth[i];
    }
    EXPECT_LT(double(different), 0.001 * double(pcm.size()));
    if (first.empty()) first = pcm;
    EXPECT_EQ(pcm, first) << cpuLevelName(level);
  }
}

INSTANTIATE_TEST_SUITE_P(Vectors, DecodeStream,
                         testing::Values(Stream{"l2_stereo_44k_192_crc", ".mp2"}, Stream{"l2_joint_44k_128", ".mp2"},
                                         Stream{"l2_joint_48k_64_crc", ".mp2"}, Stream{"l2_mono_lsf_22k_56", ".mp2"},
                                         Stream{"l2_dual_48k_256", ".mp2"}, Stream{"l1_stereo_32k_320", ".mp1"},
                                         Stream{"l1_joint_44k_192_crc", ".mp1"}),
                         [](const auto &test) { return std::string(test.param.name); });

// FNV-1a of all PCM of all streams: the same for every level, compiler and architecture.
TEST(Decode, SameBitsEverywhere) {
  for (const CpuLevel level : levelsHere()) {
    uint64_t hash = 0xCBF29CE484222325u;
    for (const char *name :
         {"l2_stereo_44k_192_crc.mp2", "l2_joint_44k_128.mp2", "l2_joint_48k_64_crc.mp2", "l2_mono_lsf_22k_56.mp2",
          "l2_dual_48k_256.mp2", "l1_stereo_32k_320.mp1", "l1_joint_44k_192_crc.mp1"}) {
      const DecoderPtr s = makeDecoder(level);
      for (const Bytes &frame : framesOf(readFile(name))) {
        const Decoded d = decodeFrame(s.get(), frame);
        for (size_t i = 0; i < d.outBytes / 2; ++i) {
          hash = (hash ^ uint8_t(d.pcm[i])) * 0x100000001B3u;
          hash = (hash ^ uint8_t(d.pcm[i] >> 8)) * 0x100000001B3u;
        }
      }
    }
    EXPECT_EQ(hash, 12055141536827049019u) << cpuLevelName(level);
  }
}

// Any bits are a frame. One session decodes frames of all kinds in turn, whole and cut, with and without check words.
TEST(Decode, RandomFramesAgainstTheReference) {
  const unsigned seed = 20260;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const DecoderPtr s = makeDecoder();
  ReferenceDecoder reference;
  int good = 0, cut = 0, empty = 0, refusedByCheck = 0;
  for (int round = 0; round < 600; ++round) {
    const uint8_t header[4] = {0xFF, uint8_t(0xF4 | (random() & 0xB)),
                               uint8_t((1 + random() % 14) << 4 | (random() % 3) << 2 | (random() & 3)),
                               uint8_t(random())};
    const int32_t length = NEB_mpeg_get1FrameSize(header, s.get());
    ASSERT_GT(length, 0);
    const FrameParams &fp = s->frame;
    // Mostly of the length that the header tells, sometimes shorter, or so long that nothing can run out.
    const size_t bodyLength = random() % 3 == 0 ? random() % 700 : random() % 3 == 0 ? 5000 : size_t(length) - 4;
    const double densities[] = {0.03, 0.1, 0.2, 0.5, 0.9};
    Bytes body = randomBody(random, bodyLength, densities[random() % 5]);
    const bool wrongWord = fp.protection == 1 && random() % 8 == 0;
    if (fp.protection == 1 && !wrongWord && bodyLength >= 2) putCheckWord(fp, body);

    const ReferenceFrame expected = reference.decode(fp, body);
    const Decoded d = decodeBody(s.get(), body);
    ASSERT_EQ(d.result, expected.refused ? kRefused : kOk) << "round " << round;
    ASSERT_EQ(d.outBytes, expected.refused ? 0 : expected.pcm.size() * 2) << "round " << round;
    expectPcm(d.pcm, expected.pcm, fp.layer, ("round " + std::to_string(round)).c_str());
    for (size_t i = expected.pcm.size(); i < d.pcm.size(); ++i) ASSERT_EQ(d.pcm[i], kUntouched) << "round " << round;
    good += !expected.refused;
    cut += expected.refused && !expected.pcm.empty();
    empty += expected.refused && expected.pcm.empty();
    refusedByCheck += wrongWord;
  }
  EXPECT_GT(good, 150);
  EXPECT_GT(cut, 50);
  EXPECT_GT(empty, 50);
  EXPECT_GT(refusedByCheck, 20);
}

TEST(Decode, ResultsOfGoodFrames) {
  const DecoderPtr s = makeDecoder();
  Bytes frame(417);
  const uint8_t stereo[4] = {0xFF, 0xFD, 0x80, 0x00};
  std::memcpy(frame.data(), stereo, 4);
  Decoded d = decodeFrame(s.get(), frame);
  EXPECT_EQ(d.result, kOk);
  EXPECT_EQ(d.consumed, 417u);
  EXPECT_EQ(d.outBytes, 4608u);

  frame.push_back(0);
  frame[2] = 0x82;
  d = decodeFrame(s.get(), frame);
  EXPECT_EQ(d.result, kOk);
  EXPECT_EQ(d.consumed, 418u);

  const uint8_t mono1[4] = {0xFF, 0xFF, 0x40, 0xC0};
  std::memcpy(frame.data(), mono1, 4);
  d = decodeFrame(s.get(), frame);
  EXPECT_EQ(d.result, kOk);
  EXPECT_EQ(d.outBytes, 768u);
}

TEST(Decode, BytesBehindTheFrameAreLeft) {
  const DecoderPtr s = makeDecoder();
  Bytes two = readFile("l2_stereo_44k_192_crc.mp2");
  const size_t length = framesOf(two)[0].size();
  EXPECT_EQ(decodeFrame(s.get(), two).consumed, length);
}

TEST(Decode, TooFewBytes) {
  const Bytes frame = framesOf(readFile("l2_stereo_44k_192_crc.mp2"))[0];
  const DecoderPtr s = makeDecoder();
  for (const size_t available : {frame.size() - 1, size_t(4), size_t(3), size_t(1), size_t(0)}) {
    const Decoded d = decodeFrame(s.get(), Bytes(frame.begin(), frame.begin() + long(available)));
    EXPECT_EQ(d.result, kIncomplete) << available;
    EXPECT_EQ(d.consumed, 0u);
    EXPECT_EQ(d.outBytes, 0u);
    EXPECT_EQ(d.pcm, Samples(d.pcm.size(), kUntouched));
  }
  EXPECT_EQ(NEB_mpeg_getFreqHz(s.get()), 44100u);  // the header was read
}

TEST(Decode, BadHeaderConsumesNothing) {
  Bytes frame = framesOf(readFile("l2_stereo_44k_192_crc.mp2"))[0];
  frame[1] = 0xFB;
  const DecoderPtr s = makeDecoder();
  const Decoded d = decodeFrame(s.get(), frame);
  EXPECT_EQ(d.result, kRefused);
  EXPECT_EQ(d.consumed, 0u);
  EXPECT_EQ(d.outBytes, 0u);
}

TEST(Decode, BadCheckWordLeavesNoTrace) {
  for (const char *name : {"l2_stereo_44k_192_crc.mp2", "l1_joint_44k_192_crc.mp1"}) {
    const std::vector<Bytes> frames = framesOf(readFile(name));
    const DecoderPtr s = makeDecoder(), undisturbed = makeDecoder();
    for (size_t i = 0; i < 6; ++i) {
      Bytes bad = frames[i];
      bad[4 + i % 2] = uint8_t(bad[4 + i % 2] ^ 1u << i);
      const Decoded refused = decodeFrame(s.get(), bad);
      EXPECT_EQ(refused.result, kRefused);
      EXPECT_EQ(refused.consumed, bad.size());
      EXPECT_EQ(refused.outBytes, 0u);
      EXPECT_EQ(refused.pcm, Samples(refused.pcm.size(), kUntouched));
      const Decoded good = decodeFrame(s.get(), frames[i]);
      EXPECT_EQ(good.result, kOk);
      EXPECT_EQ(good.pcm, decodeFrame(undisturbed.get(), frames[i]).pcm);
    }
  }
}

TEST(Decode, WithoutAnyHeader) {
  const DecoderPtr s = makeDecoder();
  const Decoded d = decodeBody(s.get(), Bytes(100, 0xFF));
  EXPECT_EQ(d.result, kOk);
  EXPECT_EQ(d.outBytes, 0u);
}

// A refused header may name a layer whose tables the session has never seen.
TEST(Decode, AfterARefusedHeader) {
  const uint8_t layer2Free[4] = {0xFF, 0xFD, 0x00, 0x00}, layer1Free[4] = {0xFF, 0xFF, 0x00, 0x00};
  const uint8_t layer1[4] = {0xFF, 0xFF, 0x40, 0x00}, layer2[4] = {0xFF, 0xFD, 0x80, 0x50};
  const DecoderPtr fresh = makeDecoder(), other = makeDecoder();
  for (const uint8_t *header : {layer2Free, layer1Free}) {
    EXPECT_EQ(NEB_mpeg_get1FrameSize(header, fresh.get()), -1);
    EXPECT_EQ(decodeBody(fresh.get(), Bytes(2000)).result, kRefused);
  }
  EXPECT_GT(NEB_mpeg_get1FrameSize(layer1, other.get()), 0);
  EXPECT_EQ(NEB_mpeg_get1FrameSize(layer2Free, other.get()), -1);
  EXPECT_EQ(decodeBody(other.get(), Bytes(2000)).result, kRefused);

  // With tables known the mixture decodes as it stands; what comes out is of no interest, that it stays in bounds is.
  const unsigned seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    EXPECT_GT(NEB_mpeg_get1FrameSize(round % 2 ? layer1 : layer2, other.get()), 0);
    EXPECT_EQ(NEB_mpeg_get1FrameSize(round % 3 ? layer2Free : layer1Free, other.get()), -1);
    const Decoded d = decodeBody(other.get(), randomBody(random, random() % 6000, 0.5));
    EXPECT_TRUE(d.result == kOk || d.result == kRefused);
  }
}

// A joint bound beyond the last subband: the fields between have no width, and ask for a byte all the same.
TEST(Decode, JointBoundBeyondTheLastSubband) {
  const uint8_t header[4] = {0xFF, 0xFD, 0x40, 0x70};  // 64 kbit/s, 44.1 kHz, joint stereo from 16 on: 8 subbands
  const DecoderPtr s = makeDecoder();
  ASSERT_GT(NEB_mpeg_get1FrameSize(header, s.get()), 0);
  ASSERT_EQ(s->frame.sblimit, 8);
  ASSERT_EQ(s->frame.jsbound, 16);
  // Allocation: 2 x 4 and 6 x 3 bits of each channel, 52 in all.
  EXPECT_EQ(decodeBody(s.get(), Bytes(7)).result, kOk);
  EXPECT_EQ(decodeBody(s.get(), Bytes(6)).result, kRefused);
}

// The shortest body that a frame without samples needs ends with its last field.
TEST(Decode, EndOfTheSideInformation) {
  const uint8_t header[4] = {0xFF, 0xFD, 0xA4, 0xC0};  // 48 kHz, mono: 27 subbands, 88 bits of allocation
  const DecoderPtr s = makeDecoder();
  ASSERT_GT(NEB_mpeg_get1FrameSize(header, s.get()), 0);
  EXPECT_EQ(decodeBody(s.get(), Bytes(11)).result, kOk);
  EXPECT_EQ(decodeBody(s.get(), Bytes(10)).result, kRefused);
  const uint8_t layer1[4] = {0xFF, 0xFF, 0x44, 0xC0};  // 128 bits of allocation
  ASSERT_GT(NEB_mpeg_get1FrameSize(layer1, s.get()), 0);
  EXPECT_EQ(decodeBody(s.get(), Bytes(16)).result, kOk);
  EXPECT_EQ(decodeBody(s.get(), Bytes(15)).result, kRefused);
}

class DecodeDamage : public testing::TestWithParam<const char *> {};

// Cut behind every byte: the reference knows what is left, and the next frame sees the history of just that.
TEST_P(DecodeDamage, CutAnywhere) {
  const std::vector<Bytes> frames = framesOf(readFile(GetParam()));
  for (size_t length = 0; length <= frames[1].size() - 4; length += oneIn()) {
    const DecoderPtr s = makeDecoder();
    ReferenceDecoder reference;
    for (const size_t i : {size_t(1), size_t(2)}) {
      ASSERT_GT(NEB_mpeg_get1FrameSize(frames[i].data(), s.get()), 0);
      const size_t end = i == 1 ? 4 + length : frames[i].size();
      const Bytes body(frames[i].begin() + 4, frames[i].begin() + long(end));
      const ReferenceFrame expected = reference.decode(s->frame, body);
      const Decoded d = decodeBody(s.get(), body);
      ASSERT_EQ(d.result, expected.refused ? kRefused : kOk) << length;
      ASSERT_EQ(d.outBytes, expected.refused ? 0 : expected.pcm.size() * 2) << length;
      expectPcm(d.pcm, expected.pcm, s->frame.layer, ("cut at " + std::to_string(length)).c_str());
      for (size_t k = expected.pcm.size(); k < d.pcm.size(); ++k) ASSERT_EQ(d.pcm[k], kUntouched) << length;
    }
  }
}

// Every single bit of a frame turned: one of the results, and PCM of the size that goes with it.
TEST_P(DecodeDamage, EveryBitTurned) {
  const std::vector<Bytes> frames = framesOf(readFile(GetParam()));
  const DecoderPtr s = makeDecoder();
  int accepted = 0, refused = 0;
  for (size_t bit = 0; bit < frames[1].size() * 8; bit += oneIn()) {
    Bytes damaged = frames[1];
    damaged[bit / 8] = uint8_t(damaged[bit / 8] ^ 0x80u >> bit % 8);
    const Decoded d = decodeFrame(s.get(), damaged);
    if (d.result == kOk) {
      ASSERT_EQ(d.outBytes, (s->frame.layer == 1 ? 768 : 2304) * NEB_mpeg_getChannel(s.get())) << bit;
      ++accepted;
    } else {
      ASSERT_TRUE(d.result == kRefused || d.result == kIncomplete) << bit;
      ASSERT_EQ(d.outBytes, 0u) << bit;
      ++refused;
    }
  }
  EXPECT_GT(accepted, 0);
  EXPECT_GT(refused, 0);
}

INSTANTIATE_TEST_SUITE_P(Frames, DecodeDamage,
                         testing::Values("l2_stereo_44k_192_crc.mp2", "l2_joint_48k_64_crc.mp2",
                                         "l2_mono_lsf_22k_56.mp2", "l1_joint_44k_192_crc.mp1", "l1_stereo_32k_320.mp1"),
                         [](const auto &test) { return std::string(test.param, strcspn(test.param, ".")); });

TEST(Decode, Noise) {
  const unsigned seed = 6;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const DecoderPtr s = makeDecoder();
  for (int round = 0; round < 3000; ++round) {
    Bytes noise = randomBody(random, random() % 2000, 0.5);
    if (noise.size() >= 2 && round % 2 == 0) {
      noise[0] = 0xFF;
      noise[1] |= 0xF4;
    }
    const Decoded d = decodeFrame(s.get(), noise);
    ASSERT_TRUE(d.result == kOk || d.result == kRefused || d.result == kIncomplete);
    ASSERT_EQ(d.outBytes == 0, d.result != kOk);
  }
}

}  // namespace
}  // namespace qav::test
