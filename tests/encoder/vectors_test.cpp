// Frames computed in double precision by an independent encoder.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "encoder/coded_channels.h"
#include "encoder/encoder_session.h"
#include "tests/support/frame_parser.h"

namespace qav {
namespace {

std::vector<int16_t> readSamples(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  std::vector<int16_t> samples(bytes.size() / 2);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = int16_t(uint8_t(bytes[2 * i]) | uint8_t(bytes[2 * i + 1]) << 8);
  return samples;
}

struct Agreement {
  uint64_t same = 0, all = 0;
  void add(uint32_t actual, uint32_t expected) {
    same += actual == expected;
    ++all;
  }
  double share() const { return double(same) / double(all); }
};

class EncoderVectors : public testing::TestWithParam<const char *> {};

TEST_P(EncoderVectors, FramesAgree) {
  const std::string base = std::string(QAV_TEST_DATA) + "/" + GetParam();
  const nlohmann::json vector = nlohmann::json::parse(std::ifstream(base + ".json"));
  const std::vector<int16_t> pcm = readSamples(base + ".s16");
  const uint32_t channels = vector["channels"];
  const std::vector<uint32_t> options = vector["options"];

  EncoderSession *session = nullptr;
  ASSERT_EQ(
      zo_mpeg_Encode1FrameInit(&session, vector["samplingRateHz"], vector["bitrateKbps"], channels, options.data()),
      uint32_t(QAV_ENCODE_OK));
  ASSERT_EQ(session->frame.sblimit, int32_t(vector["sblimit"]));

  // The filterbank once more, for the indices before the pattern, which a frame does not show.
  int16_t input[2][kInputSamples] = {};
  Agreement before, indices, selections, allocations, bitsLeft;
  const auto &frames = vector["frames"];
  ASSERT_EQ(pcm.size(), frames.size() * 1152 * channels);
  for (size_t f = 0; f < frames.size(); ++f) {
    SCOPED_TRACE("frame " + std::to_string(f));
    const auto &expected = frames[f];
    std::vector<uint8_t> out(QAV_MAX_FRAME_BYTES + QAV_ENCODE_SLACK_BYTES);
    uint32_t bytes = 0;
    ASSERT_EQ(zo_mpeg_Encode1Frame(session, pcm.data() + f * 1152 * channels, 1152, out.data(), &bytes), 0);

    EXPECT_EQ(bytes, uint32_t(expected["bytes"]));
    const uint32_t header = uint32_t(out[0]) << 24 | uint32_t(out[1]) << 16 | uint32_t(out[2]) << 8 | out[3];
    EXPECT_EQ(header, uint32_t(std::stoul(std::string(expected["header"]), nullptr, 16)));

    test::ParsedFrame parsed;
    ASSERT_EQ(test::parseFrame(out.data(), bytes, parsed), "");
    EXPECT_EQ(parsed.padding, uint32_t(expected["padding"]));
    EXPECT_EQ(parsed.checkWord, parsed.computedCheckWord);
    bitsLeft.add(uint32_t(parsed.bitsLeft), expected["bitsLeft"]);

    SubbandFrame subbands[2];
    ScaleIndices index[2];
    for (uint32_t ch = 0; ch < channels; ++ch) {
      std::copy(input[ch] + kChannelSamples, input[ch] + kInputSamples, input[ch]);
      for (size_t i = 0; i < kChannelSamples; ++i) input[ch][kFilterHistory + i] = pcm[(f * 1152 + i) * channels + ch];
      window_filter_subband(input[ch], subbands[ch]);
    }
    II_scale_factor_calc(subbands, index, int32_t(channels), session->frame.sblimit);
    for (uint32_t ch = 0; ch < channels; ++ch)
      for (uint32_t sb = 0; sb < 32; ++sb) {
        for (uint32_t part = 0; part < 3; ++part)
          if (sb < parsed.sblimit) before.add(index[ch][part][sb], expected["scaleIndexBeforePattern"][ch][part][sb]);
        allocations.add(parsed.allocation[ch][sb], expected["allocation"][ch][sb]);
        if (parsed.allocation[ch][sb] == 0 || expected["allocation"][ch][sb] == 0) continue;
        selections.add(parsed.scfsi[ch][sb], expected["scfsi"][ch][sb]);
        for (uint32_t part = 0; part < 3; ++part)
          indices.add(parsed.scaleIndex[ch][part][sb], expected["scaleIndex"][ch][part][sb]);
      }
  }
  zo_mpeg_Encode1FrameTerm(session);

  EXPECT_GE(before.share(), 0.995);
  EXPECT_GE(indices.share(), 0.995);
  EXPECT_GE(selections.share(), 0.995);
  EXPECT_GE(allocations.share(), 0.995);
  for (const auto &[name, agreement] : {std::pair("indices before the pattern", before),
                                        {"indices sent", indices},
                                        {"selection", selections},
                                        {"allocation", allocations},
                                        {"bits left", bitsLeft}})
    std::printf("%-28s %llu of %llu\n", name, static_cast<unsigned long long>(agreement.same),
                static_cast<unsigned long long>(agreement.all));
}

INSTANTIATE_TEST_SUITE_P(Files, EncoderVectors,
                         testing::Values("enc_mono_48k_64", "enc_stereo_32k_128", "enc_stereo_44k_192_crc"),
                         [](const testing::TestParamInfo<const char *> &file) { return std::string(file.param); });

}  // namespace
}  // namespace qav
