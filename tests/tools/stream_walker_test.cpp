#include "tools/stream/stream_walker.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "tests/tools/scratch_folder.h"
#include "tests/tools/synthetic_stream.h"

namespace qav::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

const char *kindName(DamageKind kind) {
  return kind == DamageKind::lostSync ? "sync" : kind == DamageKind::missingBytes ? "missing" : "cut";
}

// One event as a line: letter, frame number, byte offset, length. Runs of frames are left out unless asked for.
struct Describe {
  std::string operator()(const FrameEvent &e) const {
    return fmt::format("F {} @{} +{}", e.place.frame, e.place.offset, e.header.frameBytes);
  }
  std::string operator()(const DamageEvent &e) const {
    return fmt::format("D {} {} @{} +{} lost {}", kindName(e.kind), e.place.frame, e.place.offset, e.bytes,
                       e.lostFrames);
  }
  std::string operator()(const ContainerEvent &e) const {
    return fmt::format("R {:#x} @{}", e.riff.formatTag, e.riff.dataOffset);
  }
  std::string operator()(const TagEvent &e) const {
    return fmt::format("T {} @{} +{}", tagName(e.kind), e.place.offset, e.bytes);
  }
  std::string operator()(const FormatChangeEvent &e) const {
    return fmt::format("C {} @{}: {}", e.place.frame, e.place.offset, formatText(e.after));
  }
  std::string operator()(const OddityEvent &e) const { return fmt::format("O {} {}", e.place.frame, e.what); }
  std::string operator()(const ForeignEvent &e) const { return fmt::format("X {} @{}", e.name, e.place.offset); }
  std::string operator()(const EndEvent &e) const {
    return fmt::format("E {} frames of {}, {} bytes, {} ms", e.decodable, e.place.frame, e.place.offset,
                       std::lround(e.place.seconds * 1000));
  }
};

Lines walk(ByteSource &source) {
  StreamWalker walker(source);
  Lines lines;
  for (;;) {
    const Event &event = walker.next();
    lines.push_back(std::visit(Describe{}, event));
    if (std::holds_alternative<EndEvent>(event)) break;
  }
  EXPECT_EQ(std::visit(Describe{}, walker.next()), lines.back()) << "the end is not for ever";
  return lines;
}

Lines walkAll(const Bytes &bytes) {
  MemorySource whole(bytes);
  return walk(whole);
}

// Everything but the frames.
Lines walked(const Bytes &bytes) {
  Lines lines = walkAll(bytes);
  std::erase_if(lines, [](const std::string &line) { return line[0] == 'F'; });
  return lines;
}

const Bytes kTen = plainFrames(10);  // 417, then nine of 418
constexpr size_t kTenBytes = 417 + 9 * 418;
constexpr size_t kThird = 417 + 418;  // offset of the third frame

TEST(StreamWalker, FramesHaveNumberOffsetAndTime) {
  MemorySource source(kTen);
  StreamWalker walker(source);
  uint64_t offset = 0;
  for (unsigned i = 0; i < 10; ++i) {
    const auto &frame = std::get<FrameEvent>(walker.next());
    EXPECT_EQ(frame.place.frame, i);
    EXPECT_EQ(frame.place.offset, offset);
    EXPECT_DOUBLE_EQ(frame.place.seconds, i * 1152 / 44100.0);
    EXPECT_EQ(frame.header.kbps, 128u);
    EXPECT_EQ(frame.header.freqHz, 44100u);
    EXPECT_EQ(frame.header.channels, 2u);
    EXPECT_EQ(frame.header.frameSamples, 1152u);
    EXPECT_EQ(frame.check, Check::none);
    EXPECT_EQ(std::memcmp(frame.data, kTen.data() + offset, frame.header.frameBytes), 0);
    offset += frame.header.frameBytes;
  }
  EXPECT_TRUE(std::holds_alternative<EndEvent>(walker.next()));
}

TEST(StreamWalker, NothingAndAlmostNothing) {
  EXPECT_THAT(walkAll(""), ElementsAre("E 0 frames of 0, 0 bytes, 0 ms"));
  EXPECT_THAT(walkAll("\xFF"), ElementsAre("D sync 0 @0 +1 lost 0", "E 0 frames of 0, 1 bytes, 0 ms"));
  EXPECT_THAT(walkAll("Just a text.\n"), ElementsAre("D sync 0 @0 +13 lost 0", "E 0 frames of 0, 13 bytes, 0 ms"));
}

TEST(StreamWalker, AFileOfOneSingleFrame) {
  EXPECT_THAT(walkAll(plainFrame()), ElementsAre("F 0 @0 +417", "E 1 frames of 1, 417 bytes, 26 ms"));
  EXPECT_THAT(walkAll(plainFrame() + id3v1()),
              ElementsAre("F 0 @0 +417", "T ID3v1 @417 +128", "E 1 frames of 1, 545 bytes, 26 ms"));
  EXPECT_THAT(walkAll("garbage" + plainFrame()),
              ElementsAre("D sync 0 @0 +7 lost 0", "F 0 @7 +417", "E 1 frames of 1, 424 bytes, 26 ms"));
}

TEST(StreamWalker, EveryCombinationOfLayerVersionRateAndBitrateIsFollowed) {
  HeaderParser parser;
  int combinations = 0;
  for (const int version : {1, 2})
    for (const int layer : {1, 2})
      for (int rate = 0; rate < 3; ++rate)
        for (int bitrate = 1; bitrate < 15; ++bitrate) {
          FrameSpec spec{version, layer, bitrate, rate, 0, 3, 0};
          FrameHeader header;
          ASSERT_TRUE(parser.parse(reinterpret_cast<const uint8_t *>(headerBytes(spec).data()), header));
          Bytes stream;
          for (int i = 0; i < 5; ++i) stream += frameBytes(spec, header.frameBytes);
          const Lines lines = walked(stream);
          EXPECT_THAT(lines.back(), HasSubstr("E 5 frames of 5"));
          for (const std::string &line : lines) EXPECT_NE(line[0], 'D') << line;
          EXPECT_EQ(header.frameSamples, layer == 1 ? 384u : 1152u);
          EXPECT_EQ(header.version, static_cast<uint32_t>(version));
          EXPECT_EQ(header.layer, static_cast<uint32_t>(layer));
          ++combinations;
        }
  EXPECT_EQ(combinations, 168);
}

TEST(StreamWalker, AChangingBitrateIsNoChangeOfFormat) {
  FrameSpec low{.bitrateIndex = 4};  // 64 kbit/s: 208 bytes
  const Bytes stream = plainFrame() + frameBytes(low, 208) + plainFrame(1) + frameBytes(low, 208) + plainFrame();
  Lines lines = walked(stream);
  std::erase_if(lines, [](const std::string &line) { return line[0] == 'O'; });
  EXPECT_THAT(lines, ElementsAre("E 5 frames of 5, 1668 bytes, 131 ms"));
}

TEST(StreamWalker, GarbageAtTheHeadEvenOneByte) {
  for (const size_t n : std::initializer_list<size_t>{1, 2, 3, 4, 37, 416, 5000, 700000}) {
    EXPECT_THAT(walked(filler(n) + kTen),
                ElementsAre(fmt::format("D sync 0 @0 +{} lost 0", n),
                            fmt::format("E 10 frames of 10, {} bytes, 261 ms", n + kTenBytes)));
  }
}

TEST(StreamWalker, GarbageAtTheTailEvenOneByte) {
  for (const size_t n : std::initializer_list<size_t>{1, 2, 3, 4, 37, 5000, 700000}) {
    EXPECT_THAT(walked(kTen + filler(n)),
                ElementsAre(fmt::format("D sync 10 @{} +{} lost 0", kTenBytes, n),
                            fmt::format("E 10 frames of 10, {} bytes, 261 ms", n + kTenBytes)));
  }
}

TEST(StreamWalker, InsertedBytesBetweenFramesCostNoTime) {
  for (const size_t n : std::initializer_list<size_t>{1, 2, 37, 100, 1000, 5000}) {
    Bytes stream = kTen;
    stream.insert(kThird, filler(n));
    EXPECT_THAT(walked(stream), ElementsAre(fmt::format("D sync 2 @{} +{} lost 0", kThird, n),
                                            fmt::format("E 10 frames of 10, {} bytes, 261 ms", n + kTenBytes)));
  }
}

TEST(StreamWalker, BytesInsertedInsideAFrameStandBehindIt) {
  Bytes stream = kTen;
  stream.insert(kThird + 200, filler(10));
  EXPECT_THAT(walked(stream), ElementsAre(fmt::format("D sync 3 @{} +10 lost 0", kThird + 418),
                                          fmt::format("E 10 frames of 10, {} bytes, 261 ms", 10 + kTenBytes)));
}

TEST(StreamWalker, FalseSyncsInsideGarbageArePassedOver) {
  Bytes garbage = filler(3000);
  for (const size_t at : std::initializer_list<size_t>{10, 500, 900, 2000, 2990})
    garbage.replace(at, 4, headerBytes(FrameSpec{}));
  EXPECT_THAT(
      walked(garbage + kTen),
      ElementsAre("D sync 0 @0 +3000 lost 0", fmt::format("E 10 frames of 10, {} bytes, 261 ms", 3000 + kTenBytes)));
}

TEST(StreamWalker, ADamagedHeaderCostsOneFrame) {
  for (size_t frame = 1; frame < 10; ++frame) {
    const size_t at = 417 + (frame - 1) * 418;
    for (int bit = 0; bit < 32; ++bit) {
      if (frame == 9 && bit == 22) continue;  // the last frame without its padding slot: a byte behind the stream
      Bytes stream = kTen;
      stream[at + static_cast<size_t>(bit) / 8] ^= static_cast<char>(0x80 >> bit % 8);
      const Lines lines = walked(stream);
      // What leads the stream astray is damage; the other fields say nothing about where frames stand.
      const bool harmless = bit == 15 || bit >= 23;
      if (harmless) {
        EXPECT_THAT(lines.back(), HasSubstr("E 10 frames of 10")) << frame << " " << bit;
        for (const std::string &line : lines) EXPECT_NE(line[0], 'D') << frame << " " << bit << line;
      } else {
        EXPECT_THAT(lines, ElementsAre(fmt::format("D sync {} @{} +418 lost 1", frame, at),
                                       "E 9 frames of 10, 4179 bytes, 261 ms"))
            << frame << " " << bit;
      }
    }
  }
}

TEST(StreamWalker, ADamagedHeaderAmongChangingBitrates) {
  FrameSpec low{.bitrateIndex = 5};  // 80 kbit/s, mono: 261 bytes
  low.mode = 3;
  FrameSpec high{.bitrateIndex = 10};  // 192 kbit/s: 626 bytes
  high.mode = 3;
  const auto lowFrame = [&] { return frameBytes(low, 261); };
  const auto highFrame = [&] { return frameBytes(high, 626); };
  // The damaged frame has the length of the one behind it, not of the one before.
  Bytes stream = lowFrame() + lowFrame() + highFrame() + highFrame() + lowFrame() + lowFrame();
  stream[522] = 0;
  EXPECT_THAT(walked(stream), ElementsAre("D sync 2 @522 +626 lost 1", "E 5 frames of 6, 2296 bytes, 157 ms"));
  // Its header still parses, as one of 320 kbit/s.
  stream[522] = '\xFF';
  stream[524] = static_cast<char>(13 << 4);
  EXPECT_THAT(walked(stream), ElementsAre("D sync 2 @522 +626 lost 1", "E 5 frames of 6, 2296 bytes, 157 ms"));
}

TEST(StreamWalker, TheLastHeaderDamaged) {
  Bytes stream = kTen;
  stream[kTenBytes - 418] = 0;
  EXPECT_THAT(walked(stream), ElementsAre("D sync 9 @3761 +418 lost 1", "E 9 frames of 10, 4179 bytes, 261 ms"));
}

TEST(StreamWalker, AFrameInStepCountsWhenGarbageFollowsIt) {
  Bytes stream = kTen + filler(77);
  EXPECT_THAT(walked(stream).back(), HasSubstr("E 10 frames of 10"));
  // A later stretch begins behind the garbage.
  EXPECT_THAT(walked(stream + kTen),
              ElementsAre("D sync 10 @4179 +77 lost 0", "E 20 frames of 20, 8435 bytes, 522 ms"));
}

TEST(StreamWalker, OverwrittenFramesOfKnownPlaceKeepTheTime) {
  // Six whole frames in the middle: the header of the first is destroyed, so all of them are.
  Bytes stream = plainFrames(20);
  stream.replace(kThird, 6 * 418, filler(6 * 418));
  EXPECT_THAT(walked(stream), ElementsAre("D sync 2 @835 +2508 lost 6", "E 14 frames of 20, 8359 bytes, 522 ms"));
  // From the middle of one frame to the middle of another: the first stays in step.
  stream = plainFrames(20);
  stream.replace(kThird + 100, 3 * 418, filler(3 * 418));
  EXPECT_THAT(walked(stream), ElementsAre("D sync 3 @1253 +1254 lost 3", "E 17 frames of 20, 8359 bytes, 522 ms"));
}

TEST(StreamWalker, BytesMissingFromAFrameCostThatFrame) {
  for (const size_t at : std::initializer_list<size_t>{4, 5, 100, 400})
    for (const size_t n : std::initializer_list<size_t>{2, 3, 10, 300}) {
      if (at + n > 418) continue;
      Bytes stream = kTen;
      stream.erase(kThird + at, n);
      EXPECT_THAT(walked(stream), ElementsAre(fmt::format("D missing 2 @835 +{} lost 1", 418 - n),
                                              fmt::format("E 9 frames of 10, {} bytes, 261 ms", kTenBytes - n)))
          << at << " " << n;
    }
}

TEST(StreamWalker, AtRatesWithoutPaddingOneByteMoreOrLessIsNoDamagedHeader) {
  Bytes stream;
  for (int i = 0; i < 10; ++i) stream += frameBytes(FrameSpec{.samplingIndex = 1}, 384);
  EXPECT_THAT(walked(Bytes(stream).insert(768, "x")),
              ElementsAre("D sync 2 @768 +1 lost 0", "E 10 frames of 10, 3841 bytes, 240 ms"));
  EXPECT_THAT(walked(Bytes(stream).erase(800, 1)),
              ElementsAre("D missing 2 @768 +383 lost 1", "E 9 frames of 10, 3839 bytes, 240 ms"));
}

TEST(StreamWalker, ACheckWordProvesAHeader) {
  const Bytes stream = contentOf(QAV_TEST_DATA "/l2_stereo_44k_192_crc.mp2");
  MemorySource source(stream);
  StreamWalker walker(source);
  size_t unpaddedEnd = 0;
  for (const Event *event = &walker.next(); unpaddedEnd == 0; event = &walker.next())
    if (const auto *frame = std::get_if<FrameEvent>(event); frame && frame->place.frame > 0 && !frame->header.padding)
      unpaddedEnd = frame->place.offset + frame->header.frameBytes;
  // One byte behind an unpadded frame: the length of a padded one would lead on, but the header is right.
  const Lines lines = walked(Bytes(stream).insert(unpaddedEnd, "x"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr(fmt::format("@{} +1 lost 0", unpaddedEnd)));
  EXPECT_THAT(lines[1], HasSubstr("E 30 frames of 30"));
}

TEST(StreamWalker, BytesMissingAcrossFrames) {
  Bytes stream = kTen;
  stream.erase(kThird + 100, 2 * 418);  // frames 2 and 4 grow together, frame 3 is gone without a trace
  EXPECT_THAT(walkAll(stream).size(), 9u);
  stream = kTen;
  stream.erase(kThird + 100, 2 * 418 + 50);
  EXPECT_THAT(walked(stream), ElementsAre("D missing 2 @835 +368 lost 1", "E 7 frames of 8, 3293 bytes, 209 ms"));
}

TEST(StreamWalker, TheLastFrameCutAtEveryByte) {
  for (size_t left = 1; left < 418; ++left) {
    const Bytes stream = kTen.substr(0, kTenBytes - 418 + left);
    EXPECT_THAT(walked(stream), ElementsAre(fmt::format("D cut 9 @3761 +{} lost 0", left),
                                            fmt::format("E 9 frames of 10, {} bytes, 235 ms", 3761 + left)));
    const Bytes tagged = stream + id3v1();
    const Lines lines = walked(tagged);
    if (left >= 4) {
      EXPECT_THAT(lines, ElementsAre(fmt::format("D cut 9 @3761 +{} lost 0", left),
                                     fmt::format("T ID3v1 @{} +128", 3761 + left),
                                     fmt::format("E 9 frames of 10, {} bytes, 235 ms", 3761 + left + 128)));
    }
  }
}

TEST(StreamWalker, TagsAtHeadAndTailAreSteppedOver) {
  // The picture in a tag may hold whole frames.
  Bytes decoy = id3v2(5000);
  decoy.replace(100, 2 * 417, plainFrame() + plainFrame());
  EXPECT_THAT(walked(decoy + kTen + ape(300, true) + id3v1()),
              ElementsAre("T ID3v2 @0 +5010", "T APE @9189 +364", "T ID3v1 @9553 +128",
                          "E 10 frames of 10, 9681 bytes, 261 ms"));
  EXPECT_THAT(walked(id3v2(10) + id3v2(20) + kTen).front(), "T ID3v2 @0 +20");
  Bytes withFooter = id3v2(10);
  withFooter[5] = 0x10;
  withFooter += "3DI\4" + Bytes(6, '\0');
  EXPECT_THAT(walked(withFooter + kTen), ElementsAre("T ID3v2 @0 +30", "E 10 frames of 10, 4209 bytes, 261 ms"));
}

TEST(StreamWalker, AnApeTagWithoutHeaderIsKnownByItsFooter) {
  EXPECT_THAT(walked(kTen + ape(300, false)), ElementsAre("T APE @4179 +332", "E 10 frames of 10, 4511 bytes, 261 ms"));
  EXPECT_THAT(walked(kTen + ape(30000, false) + id3v1()),
              ElementsAre("T APE @4179 +30032", "T ID3v1 @34211 +128", "E 10 frames of 10, 34339 bytes, 261 ms"));
  EXPECT_THAT(walked(kTen + filler(9) + ape(300, false)),
              ElementsAre("D sync 10 @4179 +9 lost 0", "T APE @4188 +332", "E 10 frames of 10, 4520 bytes, 261 ms"));
}

TEST(StreamWalker, AnExtendedId3v1Tag) {
  EXPECT_THAT(
      walked(kTen + "TAG+" + Bytes(223, ' ') + id3v1()),
      ElementsAre("T ID3v1 extension @4179 +227", "T ID3v1 @4406 +128", "E 10 frames of 10, 4534 bytes, 261 ms"));
}

TEST(StreamWalker, TagsBetweenJoinedFilesAreNoDamage) {
  EXPECT_THAT(walked(kTen + id3v1() + id3v2(50) + kTen),
              ElementsAre("T ID3v1 @4179 +128", "T ID3v2 @4307 +60", "E 20 frames of 20, 8546 bytes, 522 ms"));
  EXPECT_THAT(walked(kTen + id3v1() + kTen),
              ElementsAre("T ID3v1 @4179 +128", "E 20 frames of 20, 8486 bytes, 522 ms"));
}

TEST(StreamWalker, TagsBehindGarbageAreStillTags) {
  EXPECT_THAT(walked(kTen + filler(5) + id3v1()),
              ElementsAre("D sync 10 @4179 +5 lost 0", "T ID3v1 @4184 +128", "E 10 frames of 10, 4312 bytes, 261 ms"));
  EXPECT_THAT(walked(filler(5) + id3v2(9000) + kTen),
              ElementsAre("D sync 0 @0 +5 lost 0", "T ID3v2 @5 +9010", "E 10 frames of 10, 13194 bytes, 261 ms"));
}

TEST(StreamWalker, ThreeLettersAloneAreNoTag) {
  EXPECT_THAT(walked(kTen + "TAG" + filler(300)).front(), "D sync 10 @4179 +303 lost 0");
}

TEST(StreamWalker, ATagCutByTheEnd) {
  EXPECT_THAT(walked(kTen + ape(300, true).substr(0, 200)),
              ElementsAre("T APE @4179 +200", "D cut 10 @4179 +200 lost 0", "E 10 frames of 10, 4379 bytes, 261 ms"));
  EXPECT_THAT(walked(id3v2(5000).substr(0, 100)),
              ElementsAre("T ID3v2 @0 +100", "D cut 0 @0 +100 lost 0", "E 0 frames of 0, 100 bytes, 0 ms"));
}

TEST(StreamWalker, ChangesOfRateChannelsAndLayerAreNoticed) {
  const Bytes rate48 = frameBytes(FrameSpec{.samplingIndex = 1}, 384);
  EXPECT_THAT(walked(kTen + rate48 + rate48 + rate48), ElementsAre("C 10 @4179: MPEG-1 Layer II, 48000 Hz, 2 channels",
                                                                   "E 13 frames of 13, 5331 bytes, 333 ms"));
  const Bytes mono = frameBytes(FrameSpec{.mode = 3}, 417);
  EXPECT_THAT(walked(kTen + mono + mono),
              ElementsAre("C 10 @4179: MPEG-1 Layer II, 44100 Hz, 1 channel", "E 12 frames of 12, 5013 bytes, 313 ms"));
  const Bytes layer1 = frameBytes(FrameSpec{.layer = 1, .bitrateIndex = 6}, 208);
  EXPECT_THAT(walked(kTen + layer1 + layer1),
              ElementsAre("C 10 @4179: MPEG-1 Layer I, 44100 Hz, 2 channels", "E 12 frames of 12, 4595 bytes, 279 ms"));
  const Bytes lsf = frameBytes(FrameSpec{.version = 2, .bitrateIndex = 8}, 417);
  EXPECT_THAT(walked(kTen + lsf + lsf), ElementsAre("C 10 @4179: MPEG-2 Layer II, 22050 Hz, 2 channels",
                                                    "E 12 frames of 12, 5013 bytes, 366 ms"));
}

TEST(StreamWalker, OneFrameOfAnotherFormatAtTheEndIsAChangeToo) {
  EXPECT_THAT(
      walked(kTen + frameBytes(FrameSpec{.samplingIndex = 1}, 384)),
      ElementsAre("C 10 @4179: MPEG-1 Layer II, 48000 Hz, 2 channels", "E 11 frames of 11, 4563 bytes, 285 ms"));
}

TEST(StreamWalker, OneFrameOfOtherChannelsInTheMiddleIsADamagedHeader) {
  Bytes stream = kTen;
  stream[kThird + 3] = static_cast<char>(0xC0);
  EXPECT_THAT(walked(stream), ElementsAre("D sync 2 @835 +418 lost 1", "E 9 frames of 10, 4179 bytes, 261 ms"));
}

TEST(StreamWalker, ANewFormatBehindACutFrameAndBehindGarbage) {
  const Bytes rate48 = frameBytes(FrameSpec{.samplingIndex = 1}, 384);
  EXPECT_THAT(walked(kTen.substr(0, kTenBytes - 100) + rate48 + rate48),
              ElementsAre("D missing 9 @3761 +318 lost 1", "C 10 @4079: MPEG-1 Layer II, 48000 Hz, 2 channels",
                          "E 11 frames of 12, 4847 bytes, 309 ms"));
  EXPECT_THAT(walked(kTen + filler(50) + rate48 + rate48),
              ElementsAre("D sync 10 @4179 +50 lost 0", "C 10 @4229: MPEG-1 Layer II, 48000 Hz, 2 channels",
                          "E 12 frames of 12, 4997 bytes, 309 ms"));
}

TEST(StreamWalker, ReservedValuesAndIllegalCombinationsAreNotedWhereTheyBegin) {
  FrameSpec reserved;
  reserved.emphasis = 2;
  Bytes stream = plainFrame();
  for (int i = 0; i < 3; ++i) stream += frameBytes(reserved, 417);
  stream += plainFrame() + frameBytes(reserved, 417);
  EXPECT_THAT(walked(stream),
              ElementsAre("O 1 emphasis has its reserved value 2", "O 5 emphasis has its reserved value 2",
                          "E 6 frames of 6, 2502 bytes, 157 ms"));
  const Bytes slow = frameBytes(FrameSpec{.bitrateIndex = 1}, 104);
  EXPECT_THAT(walked(slow + slow + slow), ElementsAre("O 0 Layer II at 32 kbit/s is not allowed for two channels",
                                                      "E 3 frames of 3, 312 bytes, 78 ms"));
  FrameSpec fast{.bitrateIndex = 14};
  fast.mode = 3;
  EXPECT_THAT(walked(frameBytes(fast, 1253)).front(), "O 0 Layer II at 384 kbit/s is not allowed for one channel");
}

TEST(StreamWalker, LayerThreeAndFreeFormatAreNamed) {
  Bytes frame3 = frameBytes(FrameSpec{}, 417);
  frame3[1] = '\xFB';
  frame3[2] = static_cast<char>(0x90);  // 128 kbit/s
  const Bytes layer3 = frame3 + frame3 + frame3 + frame3;
  EXPECT_THAT(walked(layer3),
              ElementsAre("X MPEG-1 Layer III @0", "D sync 0 @0 +1668 lost 0", "E 0 frames of 0, 1668 bytes, 0 ms"));
  EXPECT_THAT(walked(frame3).front(), "X MPEG-1 Layer III @0");
  EXPECT_THAT(walked(id3v2(100) + layer3)[1], "X MPEG-1 Layer III @110");
  EXPECT_THAT(walked(kTen + layer3), ElementsAre("X MPEG-1 Layer III @4179", "D sync 10 @4179 +1668 lost 0",
                                                 "E 10 frames of 10, 5847 bytes, 261 ms"));
  Bytes frame25 = filler(104);  // 32 kbit/s at 11025 Hz in steps of 576 samples: 208 bytes
  frame25 += frame25;
  frame25.replace(0, 4, "\xFF\xE3\x40\xC4", 4);
  EXPECT_THAT(walked(frame25 + frame25 + frame25 + frame25).front(), "X MPEG-2.5 Layer III @0");
  Bytes free;
  for (int i = 0; i < 6; ++i) free += frameBytes(FrameSpec{.bitrateIndex = 0, .padding = i % 2}, size_t(300 + i % 2));
  EXPECT_THAT(walked(free).front(), "X free-format MPEG-1 Layer II @0");
}

TEST(StreamWalker, InsideARiffFile) {
  const Bytes wrapped =
      riff(formatChunk(0x50) + chunk("fact", le(11520, 4)) + chunk("data", kTen) + chunk("LIST", filler(77)));
  EXPECT_THAT(walked(wrapped), ElementsAre("R 0x50 @62", "E 10 frames of 10, 4328 bytes, 261 ms"));
  MemorySource source(wrapped);
  StreamWalker walker(source);
  const auto &container = std::get<ContainerEvent>(walker.next());
  EXPECT_EQ(container.riff.factSamples, 11520u);
  EXPECT_EQ(container.riff.dataBytes, kTenBytes);
}

TEST(StreamWalker, ARiffFileOfUnknownLengthReachesToTheEnd) {
  for (const uint64_t length : {0u, 0x7FFFFFFFu, 0xFFFFFFFFu})
    EXPECT_THAT(walked("RIFF" + le(length, 4) + "WAVE" + formatChunk(0x50) + "data" + le(length, 4) + kTen),
                ElementsAre("R 0x50 @50", "E 10 frames of 10, 4229 bytes, 261 ms"));
}

TEST(StreamWalker, ARiffFileThatIsCutOrContinued) {
  const Bytes wrapped = riff(formatChunk(0x50) + chunk("data", kTen));
  EXPECT_THAT(walked(wrapped.substr(0, 50 + kTenBytes - 418)),
              ElementsAre("R 0x50 @50", "D cut 9 @3811 +0 lost 0", "E 9 frames of 9, 3811 bytes, 235 ms"));
  EXPECT_THAT(walked(wrapped + "\1\2\3"),
              ElementsAre("R 0x50 @50", "D sync 10 @4230 +3 lost 0", "E 10 frames of 10, 4233 bytes, 261 ms"));
  EXPECT_THAT(walked(wrapped + id3v1()).at(1), "T ID3v1 @4230 +128");
  EXPECT_THAT(walked(wrapped.substr(0, 30)).front(), "D cut 0 @0 +30 lost 0");
  // Inside the data chunk the stream ends as at the end of a file.
  EXPECT_THAT(walked(riff(formatChunk(0x50) + chunk("data", kTen.substr(0, kTenBytes - 8)) + chunk("LIST", "x"))),
              ElementsAre("R 0x50 @50", "D cut 9 @3811 +410 lost 0", "E 9 frames of 10, 4232 bytes, 235 ms"));
}

TEST(StreamWalker, Rf64AndPcmInside) {
  const Bytes ds64 = chunk("ds64", le(0, 8) + le(kTenBytes, 8) + le(11520, 8) + le(0, 4));
  const Bytes content = ds64 + formatChunk(0x50) + "data" + le(0xFFFFFFFF, 4) + kTen;
  EXPECT_THAT(walked("RF64" + le(0xFFFFFFFF, 4) + "WAVE" + content),
              ElementsAre("R 0x50 @86", "E 10 frames of 10, 4265 bytes, 261 ms"));
  EXPECT_THAT(walked(riff(formatChunk(1) + chunk("data", filler(100)))).front(), "R 0x1 @50");
}

// A stream with something of everything.
Bytes mixture() {
  const Bytes rate48 = frameBytes(FrameSpec{.samplingIndex = 1}, 384);
  Bytes damaged = plainFrames(60);
  damaged[417 + 418 * 5] = 0;
  damaged.insert(417 + 418 * 20, filler(333));
  damaged.erase(417 + 418 * 30, 99);
  return id3v2(700) + filler(3) + damaged + id3v1() + rate48 + rate48 + filler(20000) + rate48 + rate48 +
         ape(1000, false) + plainFrames(30).substr(0, 12000) + id3v1();
}

TEST(StreamWalker, EventsDoNotDependOnTheCutsOfTheInput) {
  const Bytes stream = mixture();
  const Lines expected = walkAll(stream);
  EXPECT_GT(expected.size(), 80u);
  MemorySource oneByOne(stream, [] { return 1; });
  EXPECT_EQ(walk(oneByOne), expected);
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 random(seed);
    MemorySource source(stream, [&] { return 1 + random() % (seed * seed * 10); });
    EXPECT_EQ(walk(source), expected) << "seed " << seed;
  }
}

// Whatever the input, every byte is accounted for once, in order, and frame numbers only grow.
void checkAccounts(const Bytes &stream, const std::string &trace) {
  MemorySource source(stream);
  StreamWalker walker(source);
  uint64_t offset = 0, frame = 0;
  double seconds = 0;
  for (;;) {
    const Event &event = walker.next();
    Place place;
    uint64_t bytes = 0;
    if (const auto *f = std::get_if<FrameEvent>(&event)) {
      place = f->place;
      bytes = f->header.frameBytes;
      ASSERT_EQ(std::memcmp(f->data, stream.data() + place.offset, bytes), 0) << trace;
    } else if (const auto *d = std::get_if<DamageEvent>(&event)) {
      place = d->place;
      bytes = d->bytes;
      ASSERT_GT(bytes, 0u) << trace;
    } else if (const auto *t = std::get_if<TagEvent>(&event)) {
      place = t->place;
      bytes = t->bytes;
    } else if (const auto *e = std::get_if<EndEvent>(&event)) {
      ASSERT_EQ(e->place.offset, stream.size()) << trace;
      ASSERT_EQ(offset, stream.size()) << trace;
      return;
    } else {
      continue;
    }
    ASSERT_EQ(place.offset, offset) << trace;
    ASSERT_GE(place.frame, frame) << trace;
    ASSERT_GE(place.seconds, seconds) << trace;
    offset += bytes;
    frame = place.frame;
    seconds = place.seconds;
  }
}

TEST(StreamWalker, EveryByteIsAccountedForOnce) {
  checkAccounts(mixture(), "mixture");
  for (unsigned seed = 1; seed <= 300; ++seed) {
    std::mt19937 random(seed);
    Bytes stream = plainFrames(40);
    const size_t wounds = 1 + random() % 6;
    for (size_t i = 0; i < wounds; ++i) {
      const size_t at = random() % stream.size();
      const size_t n = random() % 1500;
      switch (random() % 4) {
        case 0: stream[at] = static_cast<char>(random()); break;
        case 1: stream.insert(at, filler(n)); break;
        case 2: stream.erase(at, n); break;
        default: stream.replace(at, std::min(n, stream.size() - at), filler(std::min(n, stream.size() - at))); break;
      }
    }
    checkAccounts(stream, "seed " + std::to_string(seed));
  }
}

TEST(StreamWalker, RandomBytesAreNoStream) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    std::mt19937 random(seed);
    Bytes noise(200000, '\0');
    for (char &c : noise) c = static_cast<char>(random());
    EXPECT_THAT(walked(noise), ElementsAre("D sync 0 @0 +200000 lost 0", "E 0 frames of 0, 200000 bytes, 0 ms"))
        << "seed " << seed;
  }
}

TEST(StreamWalker, CheckWordsOfRealStreamsAreVerified) {
  const Bytes stream = contentOf(QAV_TEST_DATA "/l2_garbage_44k_128_crc.mp2");
  ASSERT_FALSE(stream.empty());
  MemorySource source(stream);
  StreamWalker walker(source);
  Lines checks;
  for (const Event *event = &walker.next(); !std::holds_alternative<EndEvent>(*event); event = &walker.next())
    if (const auto *frame = std::get_if<FrameEvent>(event))
      checks.push_back(fmt::format("{} {}", frame->place.frame, frame->check == Check::good ? "good" : "bad"));
  ASSERT_EQ(checks.size(), 20u);
  for (size_t i = 0; i < 20; ++i) EXPECT_EQ(checks[i], fmt::format("{} {}", i, i == 10 ? "bad" : "good"));
}

TEST(StreamWalker, CheckWordsOfJointStereoAndLayerOneAreVerified) {
  for (const char *name : {"l2_joint_48k_64_crc.mp2", "l1_joint_44k_192_crc.mp1", "l2_stereo_44k_192_crc.mp2"}) {
    const Bytes stream = contentOf(std::string(QAV_TEST_DATA "/") + name);
    ASSERT_FALSE(stream.empty()) << name;
    MemorySource source(stream);
    StreamWalker walker(source);
    int frames = 0;
    for (const Event *event = &walker.next(); !std::holds_alternative<EndEvent>(*event); event = &walker.next()) {
      ASSERT_TRUE(std::holds_alternative<FrameEvent>(*event)) << std::visit(Describe{}, *event);
      EXPECT_EQ(std::get<FrameEvent>(*event).check, Check::good);
      Bytes damaged(reinterpret_cast<const char *>(std::get<FrameEvent>(*event).data),
                    std::get<FrameEvent>(*event).header.frameBytes);
      damaged[6] ^= 1;  // of the allocation
      EXPECT_EQ(verifyCheckWord(reinterpret_cast<const uint8_t *>(damaged.data()), std::get<FrameEvent>(*event).header),
                Check::bad);
      ++frames;
    }
    EXPECT_GE(frames, 24);
  }
}

}  // namespace
}  // namespace qav::tool
