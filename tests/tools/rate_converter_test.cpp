#include "tools/pcm/rate_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace qav::tool {
namespace {

constexpr double kTau = 2.0 * std::numbers::pi;

std::vector<double> sine(uint32_t freqHz, double tone, size_t frames, unsigned channels) {
  std::vector<double> out;
  for (size_t i = 0; i < frames; ++i)
    for (unsigned c = 0; c < channels; ++c) out.push_back(0.5 * std::sin(kTau * tone * double(i) / freqHz + c));
  return out;
}

// The whole signal in pieces of odd lengths.
template <typename Converter, typename Sample>
std::vector<Sample> converted(Converter &converter, const std::vector<Sample> &in, unsigned channels) {
  std::vector<Sample> out;
  const size_t frames = in.size() / channels;
  for (size_t at = 0, piece = 1; at < frames; at += piece, piece = piece * 7 % 5003)
    converter.convert(in.data() + at * channels, std::min(piece, frames - at), out);
  converter.flush(out);
  return out;
}

struct Rates {
  uint32_t in, out;
};
constexpr Rates kRates[] = {{44100, 48000},  {48000, 44100}, {96000, 48000}, {8000, 48000},
                            {192000, 32000}, {11025, 44100}, {22050, 32000}, {768000, 48000}};

TEST(RateConverter, SoxrIsAsLongAsTheInputAndAlignedWithIt) {
  for (const auto &[in, out] : kRates)
    for (const unsigned channels : {1u, 2u}) {
      SCOPED_TRACE(testing::Message() << in << " to " << out);
      const size_t frames = in + 17;
      SoxrConverter converter(in, out, channels);
      const std::vector<double> result = converted(converter, sine(in, 997.0, frames, channels), channels);
      ASSERT_EQ(result.size(), convertedFrames(frames, in, out) * channels);
      const std::vector<double> ideal = sine(out, 997.0, result.size() / channels, channels);
      double worst = 0.0;
      for (size_t i = result.size() / 4; i < result.size() * 3 / 4; ++i)
        worst = std::max(worst, std::fabs(result[i] - ideal[i]));
      EXPECT_LT(worst, 1e-6);  // 120 dB below full scale
    }
}

TEST(RateConverter, SoxrRemovesWhatTheLowerRateCannotHold) {
  SoxrConverter converter(96000, 32000, 1);
  const std::vector<double> result = converted(converter, sine(96000, 20000.0, 96000, 1), 1);
  for (size_t i = result.size() / 4; i < result.size() * 3 / 4; ++i) ASSERT_LT(std::fabs(result[i]), 1e-6);
}

TEST(RateConverter, LinearIsAsLongAsTheInputAndInterpolates) {
  for (const auto &[in, out] : kRates)
    for (const unsigned channels : {1u, 2u})
      for (const size_t frames : {size_t{1}, size_t{2}, size_t{5}, size_t{6001}}) {
        SCOPED_TRACE(testing::Message() << in << " to " << out << ", " << frames << " frames");
        std::vector<int16_t> ramp;
        for (size_t i = 0; i < frames; ++i)
          for (unsigned c = 0; c < channels; ++c) ramp.push_back(static_cast<int16_t>(i * 5 + c * 100));
        LinearConverter converter(in, out, channels);
        const std::vector<int16_t> result = converted(converter, ramp, channels);
        const uint64_t wanted = convertedFrames(frames, in, out);
        ASSERT_EQ(result.size(), wanted * channels);
        for (size_t j = 0; j < wanted; ++j)
          for (unsigned c = 0; c < channels; ++c) {
            const double at = std::min(double(j) * in / out, double(frames - 1));
            EXPECT_NEAR(result[j * channels + c], at * 5 + c * 100, 0.51) << j;
          }
      }
}

TEST(RateConverter, NothingBecomesNothing) {
  std::vector<double> none;
  SoxrConverter soxr(44100, 48000, 2);
  soxr.flush(none);
  EXPECT_TRUE(none.empty());
  std::vector<int16_t> none16;
  LinearConverter linear(44100, 48000, 2);
  linear.flush(none16);
  EXPECT_TRUE(none16.empty());
}

TEST(RateConverter, LengthsOfDaysDoNotOverflow) {
  EXPECT_EQ(convertedFrames(uint64_t{1} << 60, 48000, 48000), uint64_t{1} << 60);
  EXPECT_EQ(convertedFrames(3, 2, 1), 2u);
  EXPECT_EQ(convertedFrames(44100, 44100, 48000), 48000u);
}

}  // namespace
}  // namespace qav::tool
