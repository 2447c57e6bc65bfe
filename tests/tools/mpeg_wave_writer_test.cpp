#include "tools/stream/mpeg_wave_writer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/tools/scratch_folder.h"
#include "tests/tools/synthetic_stream.h"
#include "tools/io/failure.h"
#include "tools/stream/mpeg_wave_format.h"

namespace qav::tool {
namespace {

FrameHeader headerOf(const Bytes &frame) {
  HeaderParser parser;
  FrameHeader header{};
  EXPECT_TRUE(parser.parse(reinterpret_cast<const uint8_t *>(frame.data()), header));
  return header;
}

// 16-bit words of the format chunk's content.
std::vector<unsigned> wordsFor(const std::vector<Bytes> &frames) {
  MpegWaveFormat format;
  for (const Bytes &frame : frames) format.add(headerOf(frame));
  const auto content = format.content();
  std::vector<unsigned> words;
  for (size_t i = 0; i < content.size(); i += 2) words.push_back(content[i] + 256u * content[i + 1]);
  return words;
}

using Words = std::vector<unsigned>;

TEST(MpegWaveFormat, EachField) {
  FrameSpec spec;
  spec.bitrateIndex = 10;  // 192 kbit/s
  spec.samplingIndex = 1;  // 48000 Hz: 576 bytes
  spec.mode = 2;
  spec.emphasis = 1;
  // Tag, channels, rate, bytes per second, alignment, bits, extension; layer, bitrate, mode, its extension, emphasis,
  // flags (MPEG-1, no check word), time stamp.
  EXPECT_EQ(
      wordsFor({headerBytes(spec), headerBytes(spec)}),
      (Words{0x50, 2, 48000, 0, 24000, 0, 576, 0, 22, 2, 192000 & 0xFFFF, 192000 >> 16, 4, 0, 2, 0x18, 0, 0, 0, 0}));
}

TEST(MpegWaveFormat, LayersVersionsAndModes) {
  FrameSpec layer1;
  layer1.layer = 1;
  layer1.samplingIndex = 2;  // 256 kbit/s, 32000 Hz: 96 slots of 4 bytes
  EXPECT_EQ(wordsFor({headerBytes(layer1)})[6], 384u);
  EXPECT_EQ(wordsFor({headerBytes(layer1)})[9], 1u);
  FrameSpec lsf;
  lsf.version = 2;
  lsf.mode = 3;
  EXPECT_EQ(wordsFor({headerBytes(lsf)})[1], 1u);
  EXPECT_EQ(wordsFor({headerBytes(lsf)})[12], 8u);
  EXPECT_EQ(wordsFor({headerBytes(lsf)})[15], 8u);  // neither MPEG-1 nor a check word
  for (const int emphasis : {0, 1, 3}) {
    FrameSpec spec;
    spec.emphasis = emphasis;
    EXPECT_EQ(wordsFor({headerBytes(spec)})[14], static_cast<unsigned>(emphasis) + 1);
  }
}

TEST(MpegWaveFormat, FlagsAreThoseOfAllFrames) {
  Bytes priv = plainFrame(), copyright = plainFrame(), original = plainFrame(), joint0 = plainFrame(),
        joint2 = plainFrame();
  priv[2] = static_cast<char>(priv[2] | 1);
  copyright[3] = static_cast<char>(copyright[3] | 8);
  original[3] = static_cast<char>(original[3] | 4);
  joint0[3] = 0x40;
  joint2[3] = 0x60;
  EXPECT_EQ(wordsFor({plainFrame()})[15], 0x18u);
  EXPECT_EQ(wordsFor({plainFrame(), priv})[15], 0x19u);
  EXPECT_EQ(wordsFor({copyright, plainFrame()})[15], 0x1Au);
  EXPECT_EQ(wordsFor({plainFrame(), original, copyright})[15], 0x1Eu);
  EXPECT_EQ(wordsFor({plainFrame()})[12], 1u);
  EXPECT_EQ(wordsFor({plainFrame(), joint0, joint2})[12], 3u);
  EXPECT_EQ(wordsFor({plainFrame(), joint0, joint2})[13], 5u);
}

TEST(MpegWaveFormat, NoBitrateAndNoAlignmentWhereTheyChange) {
  FrameSpec a, b;
  a.samplingIndex = b.samplingIndex = 1;
  a.bitrateIndex = 10;  // 192 kbit/s, 576 bytes
  b.bitrateIndex = 8;   // 128 kbit/s, 384 bytes
  const Words words = wordsFor({headerBytes(a), headerBytes(a), headerBytes(b)});
  EXPECT_EQ(words[4] + (words[5] << 16), 21334u);  // 1536 bytes in 72 ms, rounded up
  EXPECT_EQ(words[6], 1u);
  EXPECT_EQ(words[10] + (words[11] << 16), 0u);
  EXPECT_EQ(wordsFor({plainFrame()})[6], 1u) << "at 44100 Hz one frame says nothing of the others";
}

TEST(MpegWaveWriter, AFileByteForByte) {
  const ScratchFolder folder;
  OutputFile out(folder / "a.wav", false);
  MpegWaveWriter wave(out, {.expectedBytes = 1000});
  const Bytes frame = plainFrame();  // of odd length
  wave.write(reinterpret_cast<const uint8_t *>(frame.data()), headerOf(frame));
  EXPECT_EQ(wave.samples(), 1152u);
  EXPECT_EQ(wave.finish(1000), "");
  out.commit();
  const Bytes format = le(0x50, 2) + le(2, 2) + le(44100, 4) + le(16000, 4) + le(1, 2) + le(0, 2) + le(22, 2) +
                       le(2, 2) + le(128000, 4) + le(1, 2) + le(0, 2) + le(1, 2) + le(0x18, 2) + le(0, 8);
  EXPECT_EQ(contentOf(folder / "a.wav"),
            riff(chunk("fmt ", format) + chunk("fact", le(1000, 4)) + chunk("data", frame)));
}

TEST(MpegWaveWriter, RoomForLongLengthsWhereTheyMayBeNeeded) {
  const ScratchFolder folder;
  OutputFile out(folder / "a.wav", false);
  MpegWaveWriter wave(out, {});
  wave.write(reinterpret_cast<const uint8_t *>(plainFrame().data()), headerOf(plainFrame()));
  wave.finish(1152);
  out.commit();
  EXPECT_EQ(contentOf(folder / "a.wav").substr(8, 48), "WAVE" + chunk("JUNK", Bytes(28, '\0')) + "fmt " + le(40, 4));
}

TEST(MpegWaveWriter, LoudnessInABextChunkOfItsOwn) {
  const ScratchFolder folder;
  OutputFile out(folder / "a.wav", false);
  MpegWaveWriter wave(out, {.expectedBytes = 1000, .bextLoudness = true});
  wave.write(reinterpret_cast<const uint8_t *>(plainFrame().data()), headerOf(plainFrame()));
  const Loudness loudness{-23.004, 7.5, -1.239, -HUGE_VAL, -18.0};
  wave.finish(1152, &loudness);
  out.commit();
  const Bytes bext = Bytes(346, '\0') + le(2, 2) + Bytes(64, '\0') + le(65536 - 2300, 2) + le(750, 2) +
                     le(65536 - 124, 2) + le(0x7FFF, 2) + le(65536 - 1800, 2) + Bytes(180, '\0');
  EXPECT_EQ(contentOf(folder / "a.wav").substr(12 + 48 + 12, 610), chunk("bext", bext));
}

TEST(MpegWaveWriter, LoudnessNeedsABextChunkThatIsLongEnough) {
  const ScratchFolder folder;
  MemorySource source(riff(chunk("bext", Bytes(kBextBytes - 1, '\0')) + formatChunk(80) + chunk("data", "abcd")));
  KeptChunks chunks;
  ByteWindow window(source);
  window.skip(12);
  chunks.take(window, KeptChunks::Side::beforeData);
  OutputFile out(folder / "a.wav", false);
  EXPECT_THROW(MpegWaveWriter(out, {.chunks = &chunks, .bextLoudness = true}), Failure);
}

TEST(BextLevel, HundredthsWithinTheirRange) {
  EXPECT_EQ(bextLevel(0.0), 0);
  EXPECT_EQ(bextLevel(1.006), 101);
  EXPECT_EQ(bextLevel(-0.01), 0xFFFF);
  EXPECT_EQ(bextLevel(99.99), 9999);
  EXPECT_EQ(bextLevel(-99.99), 65536 - 9999);
  for (const double value : {100.0, -100.0, HUGE_VAL, -HUGE_VAL, std::nan("")}) EXPECT_EQ(bextLevel(value), 0x7FFF);
}

}  // namespace
}  // namespace qav::tool
