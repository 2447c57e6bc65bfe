// The fields of a frame as NEB_inspectFrame() tells them: against a parser of its own kind, against the bits at the
// positions it names, against what the decoder accepts, and under damage of every kind.
#include "include/qav_inspect.h"

#include <cstring>

#include "tests/decoder/decoder_fixture.h"
#include "tests/support/frame_parser.h"
#include "tests/support/one_in.h"

namespace qav::test {
namespace {

const char *const kStreams[] = {"l1_joint_44k_192_crc.mp1", "l1_stereo_32k_320.mp1",   "l2_dual_48k_256.mp2",
                                "l2_joint_44k_128.mp2",     "l2_joint_48k_64_crc.mp2", "l2_mono_lsf_22k_56.mp2",
                                "l2_stereo_44k_192_crc.mp2"};

struct Inspected {
  uint32_t result = ~0u;
  NEB_InspectFrame frame;
  NEB_InspectCodes codes;
};

// The input is a heap block of exactly its size, and the output starts as anything, so that nothing is left unset.
std::unique_ptr<Inspected> inspect(const Bytes &bytes) {
  auto it = std::make_unique<Inspected>();
  std::memset(&it->frame, 0xA5, sizeof it->frame);
  std::memset(&it->codes, 0xA5, sizeof it->codes);
  const auto exact = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  it->result = NEB_inspectFrame(exact.get(), uint32_t(bytes.size()), &it->frame, &it->codes);
  return it;
}

uint32_t bitsAt(const Bytes &frame, uint32_t at, uint32_t count) {
  uint32_t value = 0;
  for (uint32_t i = at; i < at + count; ++i)
    value = value << 1 | (i / 8 < frame.size() ? uint32_t(frame[i / 8] >> (7 - i % 8)) & 1 : 0);
  return value;
}

// Marks the bits of one field; no bit may belong to two.
class BitMap {
 public:
  explicit BitMap(uint32_t bits) : taken(bits) {}
  void take(uint32_t at, uint32_t count) {
    for (uint32_t i = at; i < at + count && i < taken.size(); ++i) {
      ASSERT_FALSE(taken[i]) << "bit " << i << " belongs to two fields";
      taken[i] = true;
    }
  }
  // From where on no bit is taken; every bit before must be.
  void expectExactlyUpTo(uint32_t end) const {
    for (uint32_t i = 0; i < taken.size(); ++i) ASSERT_EQ(taken[i], i < end) << "bit " << i;
  }

 private:
  std::vector<bool> taken;
};

bool sharesFields(const FrameParams &h, uint32_t sb) { return h.channels == 2 && int32_t(sb) >= h.jsbound; }

// Every field stands where its position says, holds what its value says, and together they fill the frame up to its end.
void expectFieldsInPlace(const Bytes &bytes, const Inspected &it) {
  const NEB_InspectFrame &f = it.frame;
  const FrameParams &h = f.header;
  BitMap map(uint32_t(8 * bytes.size()));
  map.take(0, 32);
  if (h.protection != 0) {
    map.take(32, 16);
    EXPECT_EQ(f.checkGiven, bitsAt(bytes, 32, 16));
  }
  EXPECT_EQ(f.allocationPartAt, h.protection != 0 ? 48u : 32u);
  uint32_t granuleBits = 0;
  for (uint32_t ch = 0; ch < uint32_t(h.channels); ++ch)
    for (uint32_t sb = 0; sb < 32; ++sb) {
      const bool isShadow = ch == 1 && sharesFields(h, sb);
      if (f.allocationBits[ch][sb] != 0) {
        ASSERT_EQ(f.allocation[ch][sb], bitsAt(bytes, f.allocationAt[ch][sb], f.allocationBits[ch][sb]));
        if (!isShadow) map.take(f.allocationAt[ch][sb], f.allocationBits[ch][sb]);
      }
      if (f.allocation[ch][sb] == 0) {
        ASSERT_EQ(f.scaleFactorsSent[ch][sb] + f.codeBits[ch][sb] + f.codesPerGranule[ch][sb], 0);
        for (int part = 0; part < 3; ++part)
          ASSERT_EQ(f.scaleFactor[ch][part][sb], NEB_INSPECT_NO_SCALE_FACTOR) << ch << " " << sb;
        continue;
      }
      static constexpr uint32_t kIndexOfThird[4][3] = {{0, 1, 2}, {0, 0, 1}, {0, 0, 0}, {0, 1, 1}};
      uint32_t selection = 2;
      if (h.layer == 2) {
        selection = bitsAt(bytes, f.selectionAt[ch][sb], 2);
        ASSERT_EQ(f.selection[ch][sb], selection);
        map.take(f.selectionAt[ch][sb], 2);
      }
      ASSERT_EQ(f.scaleFactorsSent[ch][sb], 1 + kIndexOfThird[selection][2]);
      map.take(f.scaleFactorAt[ch][sb], 6u * f.scaleFactorsSent[ch][sb]);
      for (uint32_t part = 0; part < 3; ++part)
        ASSERT_EQ(f.scaleFactor[ch][part][sb],
                  bitsAt(bytes, f.scaleFactorAt[ch][sb] + 6 * kIndexOfThird[selection][part], 6));

      const uint32_t width = f.codeBits[ch][sb], codes = f.codesPerGranule[ch][sb];
      if (!isShadow) granuleBits += codes * width;
      for (uint32_t g = 0; g < f.granules; ++g) {
        const uint32_t at = f.sampleAt[ch][sb] + g * f.granuleBits;
        if (!isShadow) map.take(at, codes * width);
        const uint16_t *const code = it.codes.code[ch][sb];
        if (h.layer == 1) {
          ASSERT_EQ(width, f.allocation[ch][sb] + 1u);
          ASSERT_EQ(code[g], bitsAt(bytes, at, width));
        } else if (codes == 3) {
          for (uint32_t i = 0; i < 3; ++i) ASSERT_EQ(code[3 * g + i], bitsAt(bytes, at + i * width, width));
        } else {
          const uint32_t steps = h.allocTable[sb][f.allocation[ch][sb]].steps;
          const uint32_t shared = bitsAt(bytes, at, width);
          for (uint32_t i = 0, rest = shared; i < 3; ++i, rest /= steps) ASSERT_EQ(code[3 * g + i], rest % steps);
        }
      }
    }
  ASSERT_EQ(f.granuleBits, granuleBits);
  ASSERT_EQ(f.endAt, f.samplesAt + 12 * f.granuleBits);
  if (f.granules == 12) map.expectExactlyUpTo(f.endAt);
}

TEST(Inspect, EveryFieldOfTheExampleStreamsStandsWhereItsPositionSays) {
  for (const char *name : kStreams) {
    SCOPED_TRACE(name);
    const auto frames = framesOf(readFile(name));
    ASSERT_GT(frames.size(), 5u);
    for (const Bytes &bytes : frames) {
      const auto it = inspect(bytes);
      ASSERT_EQ(it->result, uint32_t(NEB_INSPECT_GOOD));
      ASSERT_EQ(it->frame.frameBytes, bytes.size());
      ASSERT_EQ(it->frame.checkGiven, it->frame.checkComputed);
      ASSERT_EQ(it->frame.granules, 12u);
      ASSERT_NO_FATAL_FAILURE(expectFieldsInPlace(bytes, *it));
    }
  }
}

TEST(Inspect, AgreesWithAParserThatSharesNothingWithTheLibrary) {
  int frames = 0;
  for (const char *name : {"l2_dual_48k_256.mp2", "l2_stereo_44k_192_crc.mp2"}) {
    SCOPED_TRACE(name);
    for (const Bytes &bytes : framesOf(readFile(name))) {
      const auto it = inspect(bytes);
      const NEB_InspectFrame &f = it->frame;
      const auto parsed = std::make_unique<ParsedFrame>();
      ASSERT_EQ(parseFrame(bytes.data(), bytes.size(), *parsed), "");
      ASSERT_EQ(f.frameBytes, parsed->bytes);
      ASSERT_EQ(f.endAt, parsed->bitsUsed);
      ASSERT_EQ(uint32_t(f.header.sblimit), parsed->sblimit);
      ASSERT_EQ(uint32_t(f.header.kbps), parsed->bitrateKbps);
      ASSERT_EQ(uint32_t(f.header.freqHz), parsed->samplingHz);
      ASSERT_EQ(f.checkGiven, parsed->checkWord);
      ASSERT_EQ(f.checkComputed, parsed->computedCheckWord);
      for (uint32_t ch = 0; ch < parsed->channels; ++ch)
        for (uint32_t sb = 0; sb < parsed->sblimit; ++sb) {
          ASSERT_EQ(f.allocation[ch][sb], parsed->allocation[ch][sb]);
          if (parsed->levels[ch][sb] == 0) continue;
          ASSERT_EQ(f.selection[ch][sb], parsed->scfsi[ch][sb]);
          for (int part = 0; part < 3; ++part) ASSERT_EQ(f.scaleFactor[ch][part][sb], parsed->scaleIndex[ch][part][sb]);
          for (int i = 0; i < 36; ++i) ASSERT_EQ(it->codes.code[ch][sb][i], parsed->codes[ch][sb][i]);
        }
      ++frames;
    }
  }
  EXPECT_GT(frames, 20);
}

TEST(Inspect, CodesMayBeLeftOut) {
  for (const Bytes &bytes : framesOf(readFile("l2_joint_44k_128.mp2"))) {
    const auto it = inspect(bytes);
    NEB_InspectFrame alone;
    std::memset(&alone, 0x5A, sizeof alone);
    ASSERT_EQ(NEB_inspectFrame(bytes.data(), uint32_t(bytes.size()), &alone, nullptr), it->result);
    ASSERT_EQ(std::memcmp(&alone, &it->frame, sizeof alone), 0);
  }
}

TEST(Inspect, ReadsNothingBehindTheFrame) {
  for (const char *name : kStreams) {
    Bytes bytes = framesOf(readFile(name)).at(2);
    const auto alone = inspect(bytes);
    bytes.insert(bytes.end(), 500, 0xFF);
    const auto followed = inspect(bytes);
    EXPECT_EQ(followed->result, alone->result);
    EXPECT_EQ(std::memcmp(&followed->frame, &alone->frame, sizeof alone->frame), 0) << name;
    EXPECT_EQ(std::memcmp(&followed->codes, &alone->codes, sizeof alone->codes), 0) << name;
  }
}

TEST(Inspect, TellsNothingOfWhatIsNoHeader) {
  for (const Bytes &bytes : {Bytes{0xFF, 0xFB, 0x90, 0x64, 0}, Bytes{0xFF, 0xFD, 0xAC, 0, 0}, Bytes(2000, 0)}) {
    const auto it = inspect(bytes);
    EXPECT_EQ(it->result, uint32_t(NEB_INSPECT_NO_HEADER));
    const NEB_InspectFrame nothing = {};
    EXPECT_EQ(std::memcmp(&it->frame, &nothing, sizeof nothing), 0);
  }
}

TEST(Inspect, EveryTruncationIsIncomplete) {
  for (const char *name : kStreams) {
    SCOPED_TRACE(name);
    const Bytes whole = framesOf(readFile(name)).at(3);
    for (size_t length = 0; length < whole.size(); ++length) {
      const auto it = inspect(Bytes(whole.begin(), whole.begin() + ptrdiff_t(length)));
      ASSERT_EQ(it->result, uint32_t(length < 4 ? NEB_INSPECT_NO_HEADER : NEB_INSPECT_INCOMPLETE)) << length;
      ASSERT_EQ(it->frame.frameBytes, length < 4 ? 0 : whole.size());
      ASSERT_EQ(it->frame.samplesAt + it->frame.granules, 0u);
    }
  }
}

// Decoding and inspecting in one go gives what both give alone. The sessions are in the same state.
void expectTheSameInOneGo(DecoderSession *one, DecoderSession *other, const Bytes &bytes) {
  const auto alone = inspect(bytes);
  const auto decoded = decodeFrame(one, bytes);
  NEB_InspectFrame frame;
  std::memset(&frame, 0x5A, sizeof frame);
  const auto exact = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), exact.get());
  Samples pcm(QAV_MAX_FRAME_PCM_BYTES / 2, kUntouched);
  uint32_t outBytes = ~0u;
  ASSERT_EQ(NEB_inspectDecode1Frame(other, exact.get(), uint32_t(bytes.size()), pcm.data(), &outBytes, &frame),
            alone->result);
  ASSERT_EQ(std::memcmp(&frame, &alone->frame, sizeof frame), 0);
  ASSERT_EQ(outBytes, decoded.outBytes);
  ASSERT_EQ(outBytes == 0, alone->result != NEB_INSPECT_GOOD);
  ASSERT_EQ(pcm, decoded.pcm);
}

// Frames of both layers, good ones and others, go through the same two sessions.
TEST(Inspect, DecodesInOneGo) {
  const DecoderPtr one = makeDecoder(), other = makeDecoder();
  for (const char *name : kStreams) {
    SCOPED_TRACE(name);
    size_t at = 0;
    for (Bytes bytes : framesOf(readFile(name))) {
      if (++at % 5 == 0) bytes.resize(bytes.size() / 2);
      if (at % 7 == 0) bytes[bytes.size() / 3] ^= 0x10;
      if (at % 11 == 0) bytes[4 + at % 40] ^= 0xFF;
      if (at % 13 == 0) bytes[2] = 0xFF;
      ASSERT_NO_FATAL_FAILURE(expectTheSameInOneGo(one.get(), other.get(), bytes)) << at;
    }
  }
}

// What it finds good is what the decoder accepts, and its fields lie where it says even in a damaged frame.
void expectJudgedAsByTheDecoder(const Bytes &bytes) {
  const auto it = inspect(bytes);
  const DecoderPtr session = makeDecoder();
  ASSERT_NO_FATAL_FAILURE(expectTheSameInOneGo(session.get(), makeDecoder().get(), bytes));
  const uint32_t decoded = decodeFrame(session.get(), bytes).result;
  switch (it->result) {
    case NEB_INSPECT_GOOD: ASSERT_EQ(decoded, uint32_t(QAV_DECODE_OK)); break;
    case NEB_INSPECT_INCOMPLETE: ASSERT_EQ(decoded, uint32_t(QAV_DECODE_INCOMPLETE)); return;
    case NEB_INSPECT_NO_HEADER: ASSERT_EQ(decoded, uint32_t(QAV_DECODE_REFUSED)); return;
    case NEB_INSPECT_BAD_CHECK:
      ASSERT_EQ(decoded, uint32_t(QAV_DECODE_REFUSED));
      ASSERT_NE(it->frame.checkGiven, it->frame.checkComputed);
      ASSERT_EQ(it->frame.sideInfoWhole, 1u);
      break;
    case NEB_INSPECT_RUNS_OUT:
      ASSERT_EQ(decoded, uint32_t(QAV_DECODE_REFUSED));
      ASSERT_GT(it->frame.endAt, 8 * it->frame.frameBytes);
      ASSERT_LT(it->frame.granules, 12u);
      break;
    default: FAIL() << it->result;
  }
  if (it->frame.sideInfoWhole != 0) {
    ASSERT_NO_FATAL_FAILURE(expectFieldsInPlace(Bytes(bytes.begin(), bytes.begin() + it->frame.frameBytes), *it));
  }
}

TEST(Inspect, JudgesEveryFlippedBitAsTheDecoderDoes) {
  for (const char *name : kStreams) {
    SCOPED_TRACE(name);
    Bytes bytes = framesOf(readFile(name)).at(4);
    for (size_t bit = 0; bit < 8 * bytes.size(); bit += oneIn()) {
      bytes[bit / 8] ^= uint8_t(0x80 >> bit % 8);
      ASSERT_NO_FATAL_FAILURE(expectJudgedAsByTheDecoder(bytes)) << "bit " << bit;
      bytes[bit / 8] ^= uint8_t(0x80 >> bit % 8);
    }
  }
}

TEST(Inspect, JudgesRandomFramesAsTheDecoderDoes) {
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(random); };
  uint32_t results[5] = {};
  for (uint32_t i = 0; i < 3000; i += oneIn()) {
    const Bytes header = {0xFF, uint8_t(0xF4 | below(2) << 3 | below(2) << 1 | below(2)),
                          uint8_t((1 + below(14)) << 4 | below(3) << 2 | below(4)), uint8_t(below(256))};
    FrameParams fp{};
    const int32_t length = parseFrameHeader(header.data(), fp);
    ASSERT_GT(length, 0);
    Bytes body = randomBody(random, size_t(length) - 4, 0.02 + 0.2 * below(4));
    if (fp.protection != 0 && below(4) != 0) putCheckWord(fp, body);
    Bytes bytes = header;
    bytes.insert(bytes.end(), body.begin(), body.end());
    ASSERT_NO_FATAL_FAILURE(expectJudgedAsByTheDecoder(bytes));
    ++results[inspect(bytes)->result];
  }
  for (const int result : {NEB_INSPECT_GOOD, NEB_INSPECT_BAD_CHECK, NEB_INSPECT_RUNS_OUT})
    EXPECT_GT(results[result], 100 / oneIn()) << "result " << result;
}

}  // namespace
}  // namespace qav::test
