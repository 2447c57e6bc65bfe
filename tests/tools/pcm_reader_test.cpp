#include "tools/pcm/pcm_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "tests/tools/riff_file.h"
#include "tests/tools/scratch_folder.h"
#include "tools/io/byte_source.h"

namespace qav::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<int16_t> kSamples{0, 1, -1, 32767, -32768, 258, 7, -300};

// Everything that comes out of a reader, taken in pieces of odd lengths.
template <typename Sample>
std::vector<Sample> readAll(PcmReader &reader) {
  std::vector<Sample> all;
  const size_t channels = reader.format().channels;
  for (size_t piece = 1;; piece = piece * 3 % 1009) {
    std::vector<Sample> part(piece * channels);
    const size_t n = reader.read(part.data(), piece);
    all.insert(all.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(n * channels));
    if (n < piece) break;
  }
  EXPECT_EQ(reader.read(std::vector<Sample>(channels).data(), 1), 0u);
  return all;
}

std::vector<std::string> said(const PcmReader &reader) {
  std::vector<std::string> lines;
  for (const Remark &remark : reader.remarks()) lines.push_back((remark.damage ? "! " : "") + remark.complaint.what);
  return lines;
}

struct Result {
  PcmFormat format;
  std::vector<int16_t> samples;
  std::vector<std::string> said;
};

Result read16(const std::string &path, const std::optional<RawFormat> &raw = std::nullopt) {
  const auto reader = openPcm(path, raw);
  EXPECT_TRUE(reader->format().fits16);
  Result result{reader->format(), readAll<int16_t>(*reader), {}};
  result.said = said(*reader);
  return result;
}

// The same content as a file and through a named pipe.
class Either : public testing::TestWithParam<bool> {
 protected:
  ~Either() override {
    if (writer_.joinable()) writer_.join();
  }

  std::string offer(const std::string &content) {
    if (!GetParam()) return folder_.put("file", content);
    const std::string path = folder_ / "pipe";
    mkfifo(path.c_str(), 0600);
    writer_ = std::thread([path, content] { std::ofstream(path, std::ios::binary) << content; });
    return path;
  }

  ScratchFolder folder_;
  std::thread writer_;
};

INSTANTIATE_TEST_SUITE_P(PcmReader, Either, testing::Bool(),
                         [](const auto &instance) { return instance.param ? "Pipe" : "File"; });

TEST_P(Either, SixteenBitsComeOutAsTheyAre) {
  const Result result = read16(offer(wav16(44100, 2, kSamples)));
  EXPECT_EQ(result.samples, kSamples);
  EXPECT_EQ(result.format.freqHz, 44100u);
  EXPECT_EQ(result.format.channels, 2u);
  EXPECT_EQ(result.format.bits, 16u);
  EXPECT_EQ(result.format.container, "WAV");
  EXPECT_EQ(result.format.frames, GetParam() ? std::nullopt : std::optional<uint64_t>(4));
  EXPECT_THAT(result.said, IsEmpty());
}

TEST_P(Either, ChunksAroundTheSamplesArePassedOver) {
  const Result result =
      read16(offer(riff(chunk("bext", std::string(70001, 'x')) + formatChunk(1, 1, 8000, 16) + chunk("junk", "abc") +
                        chunk("data", samples16(kSamples)) + chunk("LIST", std::string(100001, 'y')))));
  EXPECT_EQ(result.samples, kSamples);
  EXPECT_THAT(result.said, IsEmpty());
}

TEST_P(Either, UnknownLengthsAreReadToTheRealEnd) {
  const std::string content = samples16(kSamples) + samples16(kSamples);
  for (const uint32_t unknown : {0u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0x80000000u, 0x7FFFF000u}) {
    SCOPED_TRACE(unknown);
    const Result result = read16(offer(lyingWav(formatChunk(1, 2, 48000, 16), unknown, unknown, content)));
    EXPECT_EQ(result.samples.size(), 16u);
    EXPECT_THAT(result.said, ElementsAre("its header gives no length; read to the real end, 32 bytes"));
    if (writer_.joinable()) {
      writer_.join();
      unlink((folder_ / "pipe").c_str());
    }
  }
}

TEST_P(Either, TheLengthOfARecorderThatWasKilledIsNone) {
  const Result result = read16(offer(lyingWav(formatChunk(1, 2, 48000, 16), 36, 0, samples16(kSamples))));
  EXPECT_EQ(result.samples, kSamples);
  EXPECT_EQ(result.said.size(), 1u);
}

TEST_P(Either, AFileWithoutSamplesHasNone) {
  for (const std::string &file :
       {wav16(48000, 2, {}), riff(formatChunk(1, 2, 48000, 16) + chunk("data", "") + chunk("LIST", "no samples"))}) {
    const Result result = read16(offer(file));
    EXPECT_THAT(result.samples, IsEmpty());
    if (writer_.joinable()) {
      writer_.join();
      unlink((folder_ / "pipe").c_str());
    }
  }
}

TEST_P(Either, ACutFileIsSaidToBeCut) {
  const std::string whole = wav16(44100, 2, kSamples);
  const Result result = read16(offer(whole.substr(0, whole.size() - 3)));
  EXPECT_EQ(result.samples, std::vector<int16_t>(kSamples.begin(), kSamples.end() - 2));
  EXPECT_THAT(result.said, ElementsAre("! is cut off: 16 bytes of samples are promised, 13 are there",
                                       "! ends with 1 byte that are no whole sample frame"));
}

TEST_P(Either, SamplesBehindALengthThatIsTooShortAreRead) {
  const Result result = read16(offer(lyingWav(formatChunk(1, 2, 48000, 16), 5000, 8, samples16(kSamples))));
  EXPECT_EQ(result.samples, kSamples);
  EXPECT_THAT(result.said, ElementsAre("its header's length, 8 bytes, is false; read to the real end, 16 bytes"));
}

TEST_P(Either, WhatFollowsTheRiffIsNoSample) {
  const Result result = read16(offer(wav16(44100, 2, kSamples) + std::string(1000, '\0')));
  EXPECT_EQ(result.samples, kSamples);
  EXPECT_THAT(result.said, ElementsAre("1000 bytes after the end that its header names were not read"));
}

TEST_P(Either, Rf64) {
  const std::string ds64 = chunk("ds64", le(200, 8) + le(16, 8) + le(4, 8) + le(0, 4));
  for (const char *const id : {"RF64", "BW64"}) {
    const Result result = read16(offer(id + le(0xFFFFFFFF, 4) + "WAVE" + ds64 + formatChunk(1, 2, 48000, 16) + "data" +
                                       le(0xFFFFFFFF, 4) + samples16(kSamples) + chunk("LIST", "abcd")));
    EXPECT_EQ(result.samples, kSamples);
    EXPECT_THAT(result.said, IsEmpty());
    EXPECT_EQ(result.format.container, id);
    if (writer_.joinable()) {
      writer_.join();
      unlink((folder_ / "pipe").c_str());
    }
  }
}

// Every header cut at every byte, and every byte of it overwritten.
TEST(PcmReader, NoHeaderCrashes) {
  const ScratchFolder folder;
  const std::string good = riff(chunk("fact", le(4, 4)) + formatChunk(0xFFFE, 2, 48000, 16).substr(0, 4) + le(40, 4) +
                                formatChunk(0xFFFE, 2, 48000, 16).substr(8) + le(22, 2) + le(16, 2) + le(3, 4) +
                                le(1, 2) + std::string(14, '\0') + chunk("data", samples16(kSamples)));
  EXPECT_EQ(read16(folder.put("good", good)).samples, kSamples);
  const auto attempt = [&](const std::string &content) {
    try {
      const auto reader = openPcm(folder.put("bad", content), std::nullopt);
      if (reader->format().fits16)
        readAll<int16_t>(*reader);
      else
        readAll<double>(*reader);
    } catch (const Failure &failure) {
      EXPECT_EQ(failure.status, kUnusable);
      EXPECT_NE(failure.complaint.what, "");
    }
  };
  for (size_t length = 0; length < good.size(); ++length) attempt(good.substr(0, length));
  for (size_t at = 0; at < good.size(); ++at)
    for (const char value : {'\0', '\x01', '\x7F', '\xFF', 'a'}) {
      std::string bad = good;
      bad[at] = value;
      attempt(bad);
    }
}

TEST(PcmReader, AFileGrownBeyondFourGigabytesIsReadToItsEnd) {
  const ScratchFolder folder;
  const uint64_t dataBytes = (uint64_t{4} << 30) + 4096;
  const std::string path =
      folder.put("long.wav", lyingWav(formatChunk(1, 2, 48000, 16), uint32_t(dataBytes + 36), uint32_t(dataBytes), {}));
  ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(44 + dataBytes)), 0);
  const auto reader = openPcm(path, std::nullopt);
  EXPECT_EQ(reader->format().frames, dataBytes / 4);
}

TEST(PcmReader, EveryWidthOfIntegersAndFloats) {
  const ScratchFolder folder;
  const auto values = [&](unsigned tag, unsigned bits, const std::string &content) {
    const auto reader =
        openPcm(folder.put("x.wav", riff(formatChunk(tag, 1, 48000, bits) + chunk("data", content))), {});
    EXPECT_FALSE(reader->format().fits16);
    EXPECT_EQ(reader->format().bits, bits);
    return readAll<double>(*reader);
  };
  EXPECT_THAT(values(1, 24, le(0x7FFFFF, 3) + le(0x800000, 3) + le(1, 3) + le(0xFFFFFF, 3)),
              ElementsAre(1.0 - 0x1p-23, -1.0, 0x1p-23, -0x1p-23));
  EXPECT_THAT(values(1, 32, le(0x7FFFFFFF, 4) + le(0x80000000, 4) + le(1, 4)),
              ElementsAre(1.0 - 0x1p-31, -1.0, 0x1p-31));
  EXPECT_THAT(values(1, 64, le(uint64_t{1} << 62, 8) + le(uint64_t{1} << 63, 8)), ElementsAre(0.5, -1.0));
  EXPECT_THAT(values(3, 32, le(0x3F000000, 4) + le(0xC0000000, 4)), ElementsAre(0.5, -2.0));
  EXPECT_THAT(values(3, 64, le(0x3FD0000000000000, 8)), ElementsAre(0.25));
  // 20 bits in three bytes, 24 bits in four: at the top of their container.
  EXPECT_THAT(values(1, 20, le(0x400000, 3)), ElementsAre(0.5));
}

TEST(PcmReader, EightBitWavIsUnsigned) {
  const ScratchFolder folder;
  const Result result = read16(
      folder.put("x.wav", riff(formatChunk(1, 1, 8000, 8) + chunk("data", std::string("\x80\xFF\0\x81\x7F", 5)))));
  EXPECT_THAT(result.samples, ElementsAre(0, 32512, -32768, 256, -256));
  EXPECT_EQ(result.format.bits, 8u);
}

TEST(PcmReader, WhatIsNoNumberBecomesSilenceAndIsCounted) {
  const ScratchFolder folder;
  std::string content;
  for (const uint32_t bits : {0x7FC00000u, 0x7F800000u, 0xFF800000u, 0x3E800000u, 0x7F7FFFFFu}) content += le(bits, 4);
  const auto reader = openPcm(folder.put("x.wav", riff(formatChunk(3, 1, 48000, 32) + chunk("data", content))), {});
  EXPECT_THAT(readAll<double>(*reader), ElementsAre(0.0, 0.0, 0.0, 0.25, double(std::numeric_limits<float>::max())));
  EXPECT_THAT(said(*reader), ElementsAre("! 3 samples were no number (infinite or NaN) and became silence"));
}

std::string failureOf(const std::function<void()> &action, int status = kUnusable) {
  try {
    action();
  } catch (const Failure &failure) {
    EXPECT_EQ(failure.status, status);
    return failure.complaint.what + "; " + failure.complaint.remedy;
  }
  return "no failure";
}

TEST(PcmReader, RefusalsSayWhy) {
  const ScratchFolder folder;
  const auto refusal = [&](const std::string &content) {
    return failureOf([&] { openPcm(folder.put("x", content), std::nullopt); });
  };
  EXPECT_EQ(refusal(""), "is empty; check the file");
  EXPECT_THAT(refusal("just text, and more than twelve bytes of it"), HasSubstr("is no sound file that is known; "));
  EXPECT_EQ(refusal(wav16(48000, 6, std::vector<int16_t>(12))),
            "has 6 channels, Layer II takes 1 or 2; mix it down to 1 or 2 channels first");
  EXPECT_THAT(refusal(wav16(10, 1, kSamples)), HasSubstr("has a sampling rate of 10 Hz"));
  const std::string mpeg = "is MPEG audio already; decode it with 'qav decode' first";
  EXPECT_EQ(refusal(riff(formatChunk(0x50, 2, 48000, 0) + chunk("data", "abcd"))), mpeg);
  EXPECT_EQ(refusal("\xFF\xFD\x84\x04" + std::string(1000, '\0')), mpeg);
  EXPECT_EQ(refusal("ID3\4" + std::string(2, '\0') + be(0x101, 4) + std::string(129, '\0') + "\xFF\xFB\x90\x04" +
                    std::string(1000, '\0')),
            mpeg);
  EXPECT_EQ(failureOf([&] { openPcm(folder / "none", std::nullopt); }),
            "cannot be opened: No such file or directory; check the name");
}

std::string storedBySndfile(const std::string &path, int format, const std::vector<int> &samples) {
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 2;
  info.format = format;
  SNDFILE *const file = sf_open(path.c_str(), SFM_WRITE, &info);
  EXPECT_NE(file, nullptr) << sf_strerror(nullptr);
  sf_write_int(file, samples.data(), static_cast<sf_count_t>(samples.size()));
  sf_close(file);
  return contentOf(path);
}

TEST_P(Either, FilesOfLibsndfileFromFilesAndPipes) {
  const unsigned seed = 7;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::vector<int> samples(2 * 5000);
  for (int &sample : samples) sample = static_cast<int>(random()) / 0x10000 * 0x10000;
  const struct {
    int format;
    const char *name;
  } kinds[] = {{SF_FORMAT_AIFF, "AIFF"},
               {SF_FORMAT_FLAC, "FLAC"},
               {SF_FORMAT_W64, "W64"},
               {SF_FORMAT_CAF, "CAF"},
               {SF_FORMAT_AU, "AU"}};
  for (const auto &[format, name] : kinds)
    for (const int width : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24}) {
      SCOPED_TRACE(name);
      const auto reader = openPcm(offer(storedBySndfile(folder_ / "made", format | width, samples)), std::nullopt);
      EXPECT_EQ(reader->format().container, name);
      EXPECT_EQ(reader->format().fits16, width == SF_FORMAT_PCM_16);
      std::vector<double> expected;
      for (const int sample : samples) expected.push_back(sample * 0x1p-31);
      if (reader->format().fits16) {
        std::vector<double> values;
        for (const int16_t sample : readAll<int16_t>(*reader)) values.push_back(sample * 0x1p-15);
        EXPECT_EQ(values, expected);
      } else {
        EXPECT_EQ(readAll<double>(*reader), expected);
      }
      EXPECT_THAT(reader->remarks(), IsEmpty());
      if (writer_.joinable()) {
        writer_.join();
        unlink((folder_ / "pipe").c_str());
      }
    }
}

TEST(PcmReader, ACutFlacFileIsSaidToBeCut) {
  const ScratchFolder folder;
  std::vector<int> samples(2 * 20000);
  std::mt19937 random(11);
  for (int &sample : samples) sample = static_cast<int>(random());
  const std::string whole = storedBySndfile(folder / "x.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, samples);
  const Result result = read16(folder.put("cut.flac", whole.substr(0, whole.size() / 2)));
  EXPECT_LT(result.samples.size(), samples.size());
  EXPECT_GT(result.samples.size(), samples.size() / 4);
  ASSERT_EQ(result.said.size(), 1u);
  EXPECT_THAT(result.said[0], HasSubstr("! is cut off or damaged: 20000 sample frames are promised, "));
}

TEST_P(Either, RawFormats) {
  const auto values = [&](const std::string &raw, const std::string &content) {
    const auto reader = openPcm(offer(content), parseRawFormat(raw + ",44100,1"));
    std::vector<double> all;
    if (reader->format().fits16)
      for (const int16_t sample : readAll<int16_t>(*reader)) all.push_back(sample * 0x1p-15);
    else
      all = readAll<double>(*reader);
    EXPECT_THAT(said(*reader), IsEmpty());
    if (writer_.joinable()) {
      writer_.join();
      unlink((folder_ / "pipe").c_str());
    }
    return all;
  };
  EXPECT_THAT(values("s8", "\x40\xC0"), ElementsAre(0.5, -0.5));
  EXPECT_THAT(values("u8", "\xC0\x40"), ElementsAre(0.5, -0.5));
  EXPECT_THAT(values("s16le", le(0x4001, 2) + le(0xC000, 2)), ElementsAre(0.5 + 0x1p-15, -0.5));
  EXPECT_THAT(values("s16be", be(0x4001, 2) + be(0xC000, 2)), ElementsAre(0.5 + 0x1p-15, -0.5));
  EXPECT_THAT(values("s24le", le(0x400001, 3)), ElementsAre(0.5 + 0x1p-23));
  EXPECT_THAT(values("s24be", be(0x400001, 3)), ElementsAre(0.5 + 0x1p-23));
  EXPECT_THAT(values("s32le", le(0x40000001, 4)), ElementsAre(0.5 + 0x1p-31));
  EXPECT_THAT(values("s32be", be(0x40000001, 4)), ElementsAre(0.5 + 0x1p-31));
  EXPECT_THAT(values("f32le", le(0xBE800000, 4)), ElementsAre(-0.25));
  EXPECT_THAT(values("f32be", be(0xBE800000, 4)), ElementsAre(-0.25));
}

TEST(PcmReader, RawLeavesNoByteUnmentioned) {
  const ScratchFolder folder;
  const Result result = read16(folder.put("x.raw", "abcdef"), parseRawFormat("s16le,44100,2"));
  EXPECT_EQ(result.samples.size(), 2u);
  EXPECT_THAT(result.said, ElementsAre("! ends with 2 bytes that are no whole sample frame"));
}

TEST(PcmReader, RawDescriptionsAreChecked) {
  const RawFormat raw = parseRawFormat("s24be,96000,1");
  EXPECT_EQ(formatName(raw.sample), "s24be");
  EXPECT_EQ(raw.freqHz, 96000u);
  EXPECT_EQ(raw.channels, 1u);
  for (const char *const bad :
       {"", "s16le", "s16le,44100", "s16le,44100,3", "s16le,44100,0", "s16le,10,1", "s17le,44100,1", "s16le,,2",
        "s16le,44100,2,", "s16le,44100x,2", "s16le,-1,2", "s16le,99999999999,2"})
    EXPECT_THAT(failureOf([&] { parseRawFormat(bad); }, kUsage), HasSubstr("formats: s8 u8 s16le s16be")) << bad;
}

}  // namespace
}  // namespace qav::tool
