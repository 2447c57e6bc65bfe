#include "tools/riff/wav_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>

#include "tests/tools/scratch_folder.h"
#include "tools/io/little_endian.h"

namespace qav::tool {
namespace {

constexpr std::array<int16_t, 6> kSamples{0, 1, -1, 32767, -32768, 258};

std::string written(const std::string &path, bool roomForRf64) {
  OutputFile out(path, false);
  WavWriter wav(out, 44100, 2, {.expectedBytes = roomForRf64 ? uint64_t{1} << 31 : 100});
  wav.write(kSamples.data(), kSamples.size());
  EXPECT_EQ(wav.finish(), "");
  out.commit();
  return contentOf(path);
}

uint32_t number(const std::string &file, size_t at) {
  return getLe32(reinterpret_cast<const uint8_t *>(file.data()) + at);
}

TEST(WavWriter, HeaderAndSamplesByteForByte) {
  const ScratchFolder folder;
  const std::string expected(
      "RIFF\x30\0\0\0WAVEfmt \x10\0\0\0\x01\0\x02\0\x44\xAC\0\0\x10\xB1\x02\0\x04\0\x10\0data\x0C\0\0\0"
      "\0\0\x01\0\xFF\xFF\xFF\x7F\0\x80\x02\x01",
      56);
  EXPECT_EQ(written(folder / "a.wav", false), expected);
}

TEST(WavWriter, RoomForRf64IsAChunkToBePassedOver) {
  const ScratchFolder folder;
  const std::string file = written(folder / "a.wav", true);
  ASSERT_EQ(file.size(), 92u);
  EXPECT_EQ(file.substr(0, 4), "RIFF");
  EXPECT_EQ(number(file, 4), 84u);
  EXPECT_EQ(file.substr(12, 4), "JUNK");
  EXPECT_EQ(number(file, 16), 28u);
  EXPECT_EQ(file.substr(48, 4), "fmt ");
  EXPECT_EQ(file.substr(72, 4), "data");
  EXPECT_EQ(number(file, 76), 12u);
}

}  // namespace
}  // namespace qav::tool
