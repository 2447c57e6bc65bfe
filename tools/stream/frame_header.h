// A frame header of Layer I or II as the tool uses it, and what is said about it.
#pragma once

#include <qav.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace qav::tool {

inline constexpr uint32_t kHeaderBytes = 4;

struct FrameHeader {
  uint32_t version;  // 1: MPEG-1; 2: MPEG-2 low sampling frequencies
  uint32_t layer;    // 1 or 2
  bool hasCheck;     // a check word follows the header
  uint32_t kbps;
  uint32_t freqHz;
  bool padding;
  bool privateBit;
  uint32_t mode;  // 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel
  uint32_t modeExt;
  bool copyright;
  bool original;
  uint32_t emphasis;  // 0 none, 1 50/15 microseconds, 2 reserved, 3 CCITT J.17
  uint32_t channels;
  uint32_t frameBytes;    // header included
  uint32_t frameSamples;  // per channel

  bool operator==(const FrameHeader &) const = default;
};

// Whether one stream of constant format may hold both. In step, a change of channels is tolerated to be judged apart.
bool sameFormat(const FrameHeader &a, const FrameHeader &b);  // layer, version, rate
bool sameFormatAndChannels(const FrameHeader &a, const FrameHeader &b);

// Bytes of a frame like `like`, with its bitrate, with or without padding.
uint32_t frameBytesLike(const FrameHeader &like, bool padding);

// Whether frames of this rate and bitrate are padded now and then: their mean length is no whole number of slots.
bool usesPadding(const FrameHeader &like);

// Layer II allows the lowest bitrates to one channel only and the highest to two (ISO/IEC 11172-3 clause 2.4.2.3).
bool isIllegalCombination(const FrameHeader &header);

const char *modeName(const FrameHeader &header);
const char *emphasisName(const FrameHeader &header);
std::string formatText(const FrameHeader &header);  // "MPEG-1 Layer II, 44100 Hz, 2 channels"

// Reads headers with the library's parser. A stream has the same few headers again and again, and each is looked at more
// than once, so some are remembered.
class HeaderParser {
 public:
  HeaderParser();
  // False when the four bytes are no header of Layer I or II.
  bool parse(const uint8_t *bytes, FrameHeader &header);

 private:
  struct Term {
    void operator()(DecoderSession *session) const { zo_mpeg_Decode1FrameTerm(session); }
  };
  struct Known {
    uint32_t word = 0;  // the four bytes; 0: none
    FrameHeader header{};
  };
  bool read(const uint8_t *bytes, FrameHeader &header);

  std::unique_ptr<DecoderSession, Term> scratch_;
  std::array<Known, 8> known_;  // by what differs between the frames of a stream: padding and mode extension
};

}  // namespace qav::tool
