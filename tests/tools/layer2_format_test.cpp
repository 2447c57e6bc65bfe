#include "tools/pcm/layer2_format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qav.h>

#include <functional>

#include "tools/pcm/layer2_encoder.h"

namespace qav::tool {
namespace {

using testing::HasSubstr;

PcmFormat input(uint32_t freqHz, unsigned channels) {
  PcmFormat format;
  format.freqHz = freqHz;
  format.channels = channels;
  return format;
}

std::string refusal(int status, const std::function<void()> &action) {
  try {
    action();
  } catch (const Failure &failure) {
    EXPECT_EQ(failure.status, status);
    return failure.complaint.what + "; " + failure.complaint.remedy;
  }
  return "not refused";
}

TEST(Layer2Format, DefaultsFollowTheInput) {
  const StreamRequest plain;
  const auto resolved = [&](uint32_t freqHz, unsigned channels) {
    return resolveFormat(plain, input(freqHz, channels));
  };
  EXPECT_EQ(resolved(44100, 2).kbps, 192u);
  EXPECT_EQ(resolved(44100, 1).kbps, 96u);
  EXPECT_EQ(resolved(44100, 1).channels, 1u);
  const std::pair<uint32_t, uint32_t> rates[] = {{1000, 32000},  {8000, 32000},  {32000, 32000}, {32001, 44100},
                                                 {44100, 44100}, {44101, 48000}, {48000, 48000}, {48001, 48000},
                                                 {96000, 48000}, {192000, 48000}};
  for (const auto &[in, out] : rates) EXPECT_EQ(resolved(in, 2).freqHz, out) << in;
}

TEST(Layer2Format, WhatWasAskedForHolds) {
  StreamRequest request;
  request.kbps = 160;
  request.freqHz = 32000;
  request.channels = 1;
  checkRequest(request);
  const StreamFormat format = resolveFormat(request, input(48000, 2));
  EXPECT_EQ(format.kbps, 160u);
  EXPECT_EQ(format.freqHz, 32000u);
  EXPECT_EQ(format.channels, 1u);
}

TEST(Layer2Format, EveryLegalStreamCanBeEncoded) {
  for (const uint32_t freqHz : kLayer2Rates)
    for (const unsigned channels : {1u, 2u})
      for (const uint32_t kbps : layer2Bitrates(channels)) {
        EncoderSession *session = nullptr;
        EXPECT_EQ(zo_mpeg_Encode1FrameInit(&session, freqHz, kbps, channels, nullptr), 0u);
        zo_mpeg_Encode1FrameTerm(session);
      }
}

TEST(Layer2Format, RefusalsListWhatIsLegal) {
  StreamRequest request;
  request.freqHz = 22050;
  EXPECT_EQ(refusal(kUsage, [&] { checkRequest(request); }),
            "-r 22050: Layer II does not allow this rate; choose 32000, 44100, 48000 Hz");
  request.freqHz = 0;
  request.kbps = 100;
  EXPECT_THAT(refusal(kUsage, [&] { checkRequest(request); }),
              HasSubstr("choose 32, 48, 56, 64, 80, 96, 112, 128, 160, 192 kbit/s for one channel, 64, 96"));
  request.kbps = 32;
  checkRequest(request);  // could be for one channel
  EXPECT_EQ(
      refusal(kUnusable, [&] { resolveFormat(request, input(48000, 2)); }),
      "-b 32: Layer II does not allow this bitrate for two channels; choose 64, 96, 112, 128, 160, 192, 224, 256, "
      "320, 384 kbit/s");
  request.channels = 2;
  EXPECT_THAT(refusal(kUsage, [&] { checkRequest(request); }), HasSubstr("-b 32: Layer II does not allow"));
}

TEST(Layer2Format, ProfilesAllowTheirOwnDefaults) {
  for (const Profile &profile : profiles()) {
    SCOPED_TRACE(profile.name);
    EXPECT_EQ(profileNamed(profile.name), &profile);
    StreamRequest request;
    request.profile = &profile;
    checkRequest(request);
    for (const unsigned channels : {1u, 2u}) {
      const std::vector<uint32_t> &legal = channels == 1 ? profile.mono : profile.stereo;
      for (const uint32_t kbps : legal) EXPECT_THAT(layer2Bitrates(channels), testing::Contains(kbps)) << channels;
      if (legal.empty()) {
        EXPECT_THAT(refusal(kUnusable, [&] { resolveFormat(request, input(48000, channels)); }),
                    HasSubstr("spread it with --channels 2"));
        continue;
      }
      const StreamFormat format = resolveFormat(request, input(11025, channels));
      EXPECT_EQ(format.freqHz, profile.rates.front());
      EXPECT_THAT(legal, testing::Contains(format.kbps));
    }
  }
  EXPECT_EQ(profileNamed("cd"), nullptr);
}

TEST(Layer2Format, ProfilesRefuseWhatContradictsThem) {
  const auto refused = [](const char *name, const std::function<void(StreamRequest &)> &change) {
    StreamRequest request;
    request.profile = profileNamed(name);
    change(request);
    return refusal(kUsage, [&] { checkRequest(request); });
  };
  EXPECT_THAT(refused("dvd", [](StreamRequest &r) { r.freqHz = 44100; }), HasSubstr("choose 48000 Hz"));
  EXPECT_THAT(refused("vcd", [](StreamRequest &r) { r.kbps = 192; }), HasSubstr("choose 224 kbit/s"));
  EXPECT_THAT(refused("vcd", [](StreamRequest &r) { r.channels = 1; }), HasSubstr("choose --channels 2"));
  EXPECT_THAT(refused("svcd", [](StreamRequest &r) { r.freqHz = 48000; }), HasSubstr("choose 44100 Hz"));
  EXPECT_THAT(refused("dvb", [](StreamRequest &r) { r.checkWord = false; }), HasSubstr("leave --no-crc out"));
  EXPECT_THAT(refused("dvb", [](StreamRequest &r) { r.emphasis = 1; }), HasSubstr("leave --emphasis out"));
  EXPECT_THAT(refused("contribution", [](StreamRequest &r) { r.kbps = 128; }), HasSubstr("at least 180 kbit/s"));
  EXPECT_EQ(refused("dvb", [](StreamRequest &r) { r.freqHz = 32000; }), "not refused");
}

TEST(Layer2Format, FramesThatBringOutEverySample) {
  EXPECT_EQ(framesFor(1), 1u);
  EXPECT_EQ(framesFor(671), 1u);
  EXPECT_EQ(framesFor(672), 2u);
  EXPECT_EQ(framesFor(1152), 2u);
  EXPECT_EQ(framesFor(1152 + 671), 2u);
}

}  // namespace
}  // namespace qav::tool
