// What a Layer II stream can be, what a use of it allows, and how a request and an input make one of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/pcm/pcm_reader.h"

namespace qav::tool {

// Sampling rates of MPEG-1, ascending.
extern const std::vector<uint32_t> kLayer2Rates;

// Bitrates in kbit/s of the whole stream that Layer II allows one or two channels (ISO/IEC 11172-3 clause 2.4.2.3).
const std::vector<uint32_t> &layer2Bitrates(unsigned channels);

// What a use allows.
struct Profile {
  const char *name;
  const char *use;
  const char *source;           // who says so
  std::vector<uint32_t> rates;  // the first is the default
  std::vector<uint32_t> mono;   // bitrates; empty: one channel is not allowed
  std::vector<uint32_t> stereo;
  uint32_t defaultMono;
  uint32_t defaultStereo;
  bool needsCheckWord;
};

const std::vector<Profile> &profiles();
const Profile *profileNamed(const std::string &name);

// What was asked for; nothing or 0 leaves it to the input and the profile.
struct StreamRequest {
  const Profile *profile = nullptr;
  uint32_t kbps = 0;
  uint32_t freqHz = 0;
  unsigned channels = 0;
  bool checkWord = true;
  uint32_t emphasis = 0;  // header field: 0 none, 1 50/15 microseconds, 3 CCITT J.17
  bool copyright = false;
  bool original = true;
};

struct StreamFormat {
  uint32_t kbps;
  uint32_t freqHz;
  unsigned channels;
};

// Refuse what no input could make legal, with what would be. Throws Failure (usage).
void checkRequest(const StreamRequest &request);

// The stream for an input. Throws Failure where the input leaves nothing legal of the request.
StreamFormat resolveFormat(const StreamRequest &request, const PcmFormat &input);

}  // namespace qav::tool
