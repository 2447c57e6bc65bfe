// The model against signal-to-mask ratios that another implementation computed in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "include/qav.h"

namespace {

class PsychoVectors : public testing::TestWithParam<const char *> {};

std::vector<int16_t> readPcm(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), {});
  std::vector<int16_t> pcm(bytes.size() / 2);
  for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = int16_t(bytes[2 * i] | bytes[2 * i + 1] << 8);
  return pcm;
}

TEST_P(PsychoVectors, RatiosAgree) {
  const std::string base = std::string(QAV_TEST_DATA "/") + GetParam();
  std::ifstream file(base + ".json");
  const auto truth = nlohmann::json::parse(file);
  const std::vector<int16_t> pcm = readPcm(base + ".s16");
  const size_t channels = truth["channels"];
  FrameParams fp = {};
  fp.freqHz = truth["samplingRateHz"];
  fp.samplingIndex = fp.freqHz == 44100 ? 0 : fp.freqHz == 48000 ? 1 : 2;
  PsychoState *state = neb_psycho_analInit(&fp);
  ASSERT_NE(state, nullptr);

  const auto &frames = truth["frames"];
  ASSERT_EQ(pcm.size(), frames.size() * 1152 * channels);
  double worst = 0.0;
  int compared = 0;
  for (size_t f = 0; f < frames.size(); ++f)
    for (size_t ch = 0; ch < channels; ++ch) {
      int16_t samples[1152];
      for (size_t i = 0; i < 1152; ++i) samples[i] = pcm[(f * 1152 + i) * channels + ch];
      float smr[32];
      neb_psycho_anal(samples, uint32_t(ch), smr, state);
      for (size_t sb = 0; sb < 32; ++sb) {
        const double expected = frames[f]["smrDb"][ch][sb];
        if (expected <= -60.0) continue;
        ++compared;
        worst = std::max(worst, std::abs(double(smr[sb]) - expected));
        EXPECT_NEAR(smr[sb], expected, 0.001) << "frame " << f << " channel " << ch << " subband " << sb;
      }
    }
  std::free(state);
  EXPECT_GT(compared, int(frames.size() * channels * 20));
  RecordProperty("worstDb", std::to_string(worst));
}

INSTANTIATE_TEST_SUITE_P(All, PsychoVectors,
                         testing::Values("enc_mono_48k_64", "enc_stereo_32k_128", "enc_stereo_44k_192_crc"));

}  // namespace
