#include "tools/threads/stretch_decoder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/tools/scratch_folder.h"
#include "tests/tools/synthetic_stream.h"
#include "tools/io/failure.h"
#include "tools/io/md5.h"
#include "tools/threads/stream_decoder.h"

namespace qav::tool {
namespace {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned below(unsigned n) { return static_cast<unsigned>(engine_() >> 8) % n; }
  bool chance(unsigned percent) { return below(100) < percent; }
  Bytes bytes(size_t count) {
    Bytes all(count, '\0');
    for (char &byte : all) byte = static_cast<char>(engine_() >> 16);
    return all;
  }

 private:
  std::mt19937 engine_;
};

// A frame of random samples without a check word. The more of the allocation is 0, the more probably it decodes;
// otherwise its bits run out, mostly after some of its samples.
Bytes randomFrame(const FrameSpec &spec, Random &random, unsigned percentEmpty) {
  HeaderParser parser;
  FrameHeader header;
  const Bytes head = headerBytes(spec);
  EXPECT_TRUE(parser.parse(reinterpret_cast<const uint8_t *>(head.data()), header));
  Bytes payload = random.bytes(header.frameBytes - 4);
  for (size_t i = 0; i < 32 && i < payload.size(); ++i)
    if (random.chance(percentEmpty)) payload[i] = '\0';
  return head + payload;
}

std::vector<Bytes> framesOf(const std::string &file) {
  MemorySource source(contentOf(std::string(QAV_TEST_DATA) + "/" + file));
  StreamWalker walker(source);
  std::vector<Bytes> frames;
  for (;;) {
    const Event &event = walker.next();
    if (const auto *frame = std::get_if<FrameEvent>(&event))
      frames.emplace_back(reinterpret_cast<const char *>(frame->data), frame->header.frameBytes);
    if (std::holds_alternative<EndEvent>(event)) return frames;
  }
}

// Everything that decoding says and gives, as text.
std::string decode(const std::string &file, unsigned threads) {
  std::string said;
  Md5 md5;
  uint64_t samples = 0;
  const auto sayDigest = [&] { said += fmt::format("  {} samples, {}\n", samples, md5.hexDigest()); };
  StreamReport report;
  uint32_t channels = 0;
  try {
    MpegInput input(file, {.verifyChecks = false});
    decodeStream(input, report,
                 {.begin =
                      [&](const FrameHeader &header) {
                        channels = header.channels;
                        said += fmt::format("begin {} Hz {} channels\n", header.freqHz, channels);
                      },
                  .write =
                      [&](const int16_t *pcm, size_t frames) {
                        md5.add(pcm, frames * channels * 2);
                        samples += frames;
                      },
                  .silence = [&](uint64_t frames) { said += fmt::format("at {} silence {}\n", samples, frames); },
                  .tell =
                      [&](const Finding &finding) {
                        said += fmt::format("at {} frame {} byte {}: {}\n", samples, finding.place.frame,
                                            finding.place.offset, describeFinding(finding));
                      }},
                 threads);
  } catch (const Failure &failure) {
    said += failure.complaint.what + "\n";
  }
  sayDigest();
  return said + report.json(0).dump();
}

void expectSameWithThreads(const Bytes &stream, const std::string &what) {
  const ScratchFolder folder;
  const std::string file = folder.put("stream", stream);
  const std::string alone = decode(file, 1);
  for (const unsigned threads : {2u, 3u, 8u}) ASSERT_EQ(decode(file, threads), alone) << what << threads;
}

TEST(StretchDecoder, EveryFormat) {
  Random random(1);
  for (const int version : {1, 0})
    for (const int layer : {1, 2})
      for (const int samplingIndex : {0, 1, 2})
        for (const int mode : {0, 1, 3}) {
          FrameSpec spec{version, layer, 10, samplingIndex, 0, mode, 0};
          Bytes stream;
          for (int i = 0; i < (layer == 1 ? 900 : 300); ++i) stream += randomFrame(spec, random, 80);
          expectSameWithThreads(stream, fmt::format("version {} layer {} rate {} mode {}, threads ", version, layer,
                                                    samplingIndex, mode));
        }
}

// Runs of frames that do not decode, longer than what warms up, across the beginnings of stretches. A wrong check word
// leaves the decoder as it was; a frame that runs out advances it in part.
TEST(StretchDecoder, RefusedFramesBeforeAStretch) {
  for (const int layer : {1, 2}) {
    const std::vector<Bytes> real = framesOf(layer == 1 ? "l1_joint_44k_192_crc.mp1" : "l2_stereo_44k_192_crc.mp2");
    for (unsigned seed = 0; seed < 5; ++seed) {
      Random random(seed);
      Bytes stream = real[0];
      for (int run = 0; run < 40; ++run) {
        const unsigned length = 1 + random.below(random.chance(30) ? 300 : 12), kind = random.below(4);
        for (unsigned i = 0; i < length; ++i) {
          Bytes frame = real[random.below(static_cast<unsigned>(real.size()))];
          if (kind == 0) frame = randomFrame({1, layer, 10, 0, 0, 0, 0}, random, 0);
          if (kind == 1) frame[4] ^= 1;
          if (kind == 2 && random.chance(90)) frame[4] ^= 1;
          stream += frame;
        }
      }
      expectSameWithThreads(stream, fmt::format("layer {} seed {}, threads ", layer, seed));
    }
  }
}

// A stretch that begins soon after the format has changed, with frames before it that do not decode.
TEST(StretchDecoder, RefusedFramesBehindChanges) {
  const std::vector<Bytes> real[] = {framesOf("l2_joint_48k_64_crc.mp2"), framesOf("l2_stereo_44k_192_crc.mp2")};
  for (unsigned seed = 0; seed < 4; ++seed) {
    Random random(seed);
    Bytes stream;
    for (int change = 0; change < 300; ++change) {
      const std::vector<Bytes> &frames = real[change % 2];
      const unsigned bad = random.below(8), good = 1 + random.below(3);
      for (unsigned i = 0; i < bad + good; ++i) {
        Bytes frame = frames[random.below(static_cast<unsigned>(frames.size()))];
        if (i < bad) frame[4] ^= 1;
        stream += frame;
      }
    }
    expectSameWithThreads(stream, fmt::format("seed {}, threads ", seed));
  }
}

TEST(StretchDecoder, StreamsWithoutAGoodFrame) {
  for (const int layer : {1, 2}) {
    Random random(7);
    Bytes stream;
    for (int i = 0; i < 1000; ++i) stream += randomFrame({1, layer, 10, 0, 0, 0, 0}, random, 0);
    expectSameWithThreads(stream, fmt::format("layer {}, threads ", layer));
  }
}

// Real streams with damage of every kind, one behind the other.
TEST(StretchDecoder, PlantedDamage) {
  const char *const files[] = {"l1_joint_44k_192_crc.mp1", "l1_stereo_32k_320.mp1",   "l2_dual_48k_256.mp2",
                               "l2_joint_44k_128.mp2",     "l2_joint_48k_64_crc.mp2", "l2_mono_lsf_22k_56.mp2",
                               "l2_stereo_44k_192_crc.mp2"};
  for (unsigned seed = 0; seed < 8; ++seed) {
    Random random(seed);
    Bytes stream;
    for (int part = 0; part < 3; ++part) {
      const std::vector<Bytes> frames = framesOf(files[random.below(std::size(files))]);
      ASSERT_GT(frames.size(), 5u);
      const unsigned damaged = random.below(30);  // percent
      const unsigned length = 1 + random.below(800);
      for (unsigned i = 0; i < length; ++i) {
        Bytes frame = frames[i % frames.size()];
        if (random.chance(damaged)) switch (random.below(7)) {
            case 0: frame[random.below(4)] ^= static_cast<char>(1 << random.below(8)); break;
            case 1: frame[4 + random.below(8)] ^= static_cast<char>(1 << random.below(8)); break;
            case 2: frame.replace(4, frame.size() - 4, random.bytes(frame.size() - 4)); break;
            case 3: frame.erase(random.below(static_cast<unsigned>(frame.size()))); break;
            case 4: frame.erase(0, random.below(8)); break;
            case 5: frame = random.bytes(random.below(5000)) + frame; break;
            case 6: frame = (random.chance(50) ? id3v2(100) : ape(50, true)) + frame; break;
          }
        stream += frame;
      }
    }
    if (random.chance(50)) stream.resize(stream.size() - random.below(300));
    expectSameWithThreads(stream, fmt::format("seed {}, threads ", seed));
  }
}

// Findings without end between the frames, and formats that change with every other frame.
TEST(StretchDecoder, ManyEventsAndFewFrames) {
  Random random(3);
  Bytes tags = randomFrame({}, random, 90) + randomFrame({}, random, 90), changes;
  for (int i = 0; i < 3000; ++i) {
    tags += id3v2(10);
    if (i % 500 == 0) tags += randomFrame({}, random, 90);
    FrameSpec spec;
    spec.mode = i / 2 % 2 == 0 ? 0 : 3;
    changes += randomFrame(spec, random, 90);
  }
  expectSameWithThreads(tags, "tags, threads ");
  expectSameWithThreads(changes, "changes, threads ");
}

TEST(StretchDecoder, WhatIsNoStreamIsRefusedAlike) {
  expectSameWithThreads("", "empty, threads ");
  expectSameWithThreads(filler(100000), "no frames, threads ");
}

TEST(StretchDecoder, AFailureOfTheReceiverEndsTheWork) {
  const ScratchFolder folder;
  Random random(5);
  Bytes stream;
  for (int i = 0; i < 1000; ++i) stream += randomFrame({}, random, 100);
  const std::string file = folder.put("stream", stream);
  for (const unsigned threads : {1u, 2u, 8u}) {
    MpegInput input(file, {.verifyChecks = false});
    StreamReport report;
    size_t written = 0;  // frames
    const auto write = [&](const int16_t *, size_t samples) {
      written += samples / QAV_SAMPLES_PER_FRAME;
      if (written >= 300) throw std::runtime_error("the output broke");
    };
    PcmReceiver receiver;
    receiver.write = write;
    EXPECT_THROW(decodeStream(input, report, receiver, threads), std::runtime_error);
    // On several threads the frames of a stretch are written at once.
    EXPECT_EQ(written, threads == 1 ? 300u : 384u);
  }
}

}  // namespace
}  // namespace qav::tool
