#include "tools/pcm/layer2_format.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "tools/io/failure.h"

namespace qav::tool {

const std::vector<uint32_t> kLayer2Rates{32000, 44100, 48000};

namespace {

const std::vector<uint32_t> kMono{32, 48, 56, 64, 80, 96, 112, 128, 160, 192};
const std::vector<uint32_t> kStereo{64, 96, 112, 128, 160, 192, 224, 256, 320, 384};

constexpr uint32_t kDefaultMono = 96, kDefaultStereo = 192;

bool holds(const std::vector<uint32_t> &list, uint32_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

std::string list(const std::vector<uint32_t> &values) { return fmt::format("{}", fmt::join(values, ", ")); }

std::string channelsText(unsigned channels) { return channels == 1 ? "one channel" : "two channels"; }

const std::vector<uint32_t> &bitratesOf(const Profile *profile, unsigned channels) {
  if (!profile) return layer2Bitrates(channels);
  return channels == 1 ? profile->mono : profile->stereo;
}

const std::vector<uint32_t> &ratesOf(const Profile *profile) { return profile ? profile->rates : kLayer2Rates; }

// "--for vcd" or "Layer II", as who allows something.
std::string authority(const Profile *profile) {
  return profile ? fmt::format("--for {} ({})", profile->name, profile->source) : "Layer II";
}

[[noreturn]] void refuse(int status, const std::string &what, const std::string &remedy) {
  throw Failure(status, {{}, what, remedy});
}

void checkRate(const StreamRequest &request) {
  const std::vector<uint32_t> &legal = ratesOf(request.profile);
  if (request.freqHz == 0 || holds(legal, request.freqHz)) return;
  refuse(kUsage, fmt::format("-r {}: {} does not allow this rate", request.freqHz, authority(request.profile)),
         "choose " + list(legal) + " Hz");
}

void checkBitrate(const StreamRequest &request, unsigned channels, int status) {
  const std::vector<uint32_t> &legal = bitratesOf(request.profile, channels);
  if (request.kbps == 0 || holds(legal, request.kbps)) return;
  refuse(status,
         fmt::format("-b {}: {} does not allow this bitrate for {}", request.kbps, authority(request.profile),
                     channelsText(channels)),
         "choose " + list(legal) + " kbit/s");
}

}  // namespace

const std::vector<uint32_t> &layer2Bitrates(unsigned channels) { return channels == 1 ? kMono : kStereo; }

const std::vector<Profile> &profiles() {
  static const std::vector<Profile> all{
      {"dvd",
       "DVD-Video",
       "DVD Specifications for Read-Only Disc, Part 3",
       {48000},
       {64, 80, 96, 112, 128, 160, 192},
       kStereo,
       192,
       192,
       false},
      {"vcd", "Video CD", "Video CD 2.0, White Book", {44100}, {}, {224}, 0, 224, false},
      {"svcd", "Super Video CD", "IEC 62107", {44100}, kMono, kStereo, 128, 224, false},
      {"dvb",
       "digital television",
       "ETSI TS 101 154 clause 6.1",
       {48000, 44100, 32000},
       kMono,
       kStereo,
       128,
       192,
       true},
      {"contribution",
       "contribution links between studios",
       "ITU-R BS.1115: at least 180 kbit/s for each channel",
       {48000, 44100, 32000},
       {192},
       {384},
       192,
       384,
       false},
  };
  return all;
}

const Profile *profileNamed(const std::string &name) {
  for (const Profile &profile : profiles())
    if (name == profile.name) return &profile;
  return nullptr;
}

void checkRequest(const StreamRequest &request) {
  const Profile *const profile = request.profile;
  checkRate(request);
  if (request.channels == 1 && bitratesOf(profile, 1).empty())
    refuse(kUsage, fmt::format("--channels 1: {} does not allow one channel", authority(profile)),
           "choose --channels 2");
  if (profile && profile->needsCheckWord && !request.checkWord)
    refuse(kUsage, fmt::format("--no-crc: {} wants check words", authority(profile)), "leave --no-crc out");
  if (profile && request.emphasis != 0)
    refuse(kUsage, fmt::format("--emphasis: {} has none", authority(profile)), "leave --emphasis out");
  if (request.channels != 0) return checkBitrate(request, request.channels, kUsage);
  if (request.kbps != 0 && !holds(bitratesOf(profile, 1), request.kbps) &&
      !holds(bitratesOf(profile, 2), request.kbps)) {
    std::string legal = list(bitratesOf(profile, 2)) + " kbit/s for two channels";
    if (!bitratesOf(profile, 1).empty()) legal = list(bitratesOf(profile, 1)) + " kbit/s for one channel, " + legal;
    refuse(kUsage, fmt::format("-b {}: {} does not allow this bitrate", request.kbps, authority(profile)),
           "choose " + legal);
  }
}

StreamFormat resolveFormat(const StreamRequest &request, const PcmFormat &input) {
  const Profile *const profile = request.profile;
  StreamFormat format{request.kbps, request.freqHz, request.channels};
  if (format.channels == 0) {
    format.channels = input.channels;
    if (bitratesOf(profile, format.channels).empty())
      refuse(kUnusable, fmt::format("has one channel, which {} does not allow", authority(profile)),
             "spread it with --channels 2");
  }
  if (format.freqHz == 0) {
    const std::vector<uint32_t> &legal = ratesOf(profile);
    const auto above = std::lower_bound(kLayer2Rates.begin(), kLayer2Rates.end(), input.freqHz);
    if (profile)
      format.freqHz = legal.front();
    else
      format.freqHz = above == kLayer2Rates.end() ? kLayer2Rates.back() : *above;
  }
  if (format.kbps == 0) {
    if (profile)
      format.kbps = format.channels == 1 ? profile->defaultMono : profile->defaultStereo;
    else
      format.kbps = format.channels == 1 ? kDefaultMono : kDefaultStereo;
  }
  StreamRequest resolved = request;
  resolved.kbps = format.kbps;
  checkBitrate(resolved, format.channels, kUnusable);
  return format;
}

}  // namespace qav::tool
