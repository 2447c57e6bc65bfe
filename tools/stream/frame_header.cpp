#include "tools/stream/frame_header.h"

#include <fmt/format.h>

#include <new>

namespace qav::tool {

namespace {

// Slots of 4 bytes in Layer I, of 1 byte in Layer II.
uint32_t bytesOf(uint32_t layer, uint32_t kbps, uint32_t freqHz, bool padding) {
  const uint32_t pad = padding ? 1 : 0;
  return layer == 1 ? (12000 * kbps / freqHz + pad) * 4 : 144000 * kbps / freqHz + pad;
}

}  // namespace

bool sameFormat(const FrameHeader &a, const FrameHeader &b) {
  return a.layer == b.layer && a.version == b.version && a.freqHz == b.freqHz;
}

bool sameFormatAndChannels(const FrameHeader &a, const FrameHeader &b) {
  return sameFormat(a, b) && a.channels == b.channels;
}

uint32_t frameBytesLike(const FrameHeader &like, bool padding) {
  return bytesOf(like.layer, like.kbps, like.freqHz, padding);
}

bool usesPadding(const FrameHeader &like) { return (like.layer == 1 ? 12000 : 144000) * like.kbps % like.freqHz != 0; }

bool isIllegalCombination(const FrameHeader &header) {
  if (header.version != 1 || header.layer != 2) return false;
  if (header.channels == 1) return header.kbps >= 224;
  return header.kbps == 32 || header.kbps == 48 || header.kbps == 56 || header.kbps == 80;
}

const char *modeName(const FrameHeader &header) {
  static constexpr const char *kNames[] = {"stereo", "joint stereo", "dual channel", "single channel"};
  return kNames[header.mode];
}

const char *emphasisName(const FrameHeader &header) {
  static constexpr const char *kNames[] = {"none", "50/15 microseconds", "reserved", "CCITT J.17"};
  return kNames[header.emphasis];
}

std::string formatText(const FrameHeader &header) {
  return fmt::format("MPEG-{} Layer {}, {} Hz, {} channel{}", header.version, header.layer == 1 ? "I" : "II",
                     header.freqHz, header.channels, header.channels == 1 ? "" : "s");
}

HeaderParser::HeaderParser() {
  DecoderSession *session = nullptr;
  if (zo_mpeg_Decode1FrameInit(&session) != QAV_DECODE_OK) throw std::bad_alloc();
  scratch_.reset(session);
}

bool HeaderParser::parse(const uint8_t *bytes, FrameHeader &header) {
  if (bytes[0] != 0xFF || (bytes[1] & 0xF0) != 0xF0) return false;
  const uint32_t word = uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
  Known &known = known_[(word >> 9 & 1) | (word >> 3 & 6)];
  if (known.word != word) {
    if (!read(bytes, header)) return false;
    known = {word, header};
  }
  header = known.header;
  return true;
}

bool HeaderParser::read(const uint8_t *bytes, FrameHeader &header) {
  const int32_t length = NEB_mpeg_get1FrameSize(bytes, scratch_.get());
  if (length < 0) return false;
  header.version = (bytes[1] & 0x08) != 0 ? 1 : 2;
  header.layer = (bytes[1] & 0x06) == 0x06 ? 1 : 2;
  header.hasCheck = (bytes[1] & 0x01) == 0;
  header.kbps = NEB_mpeg_getKbps(scratch_.get());
  header.freqHz = NEB_mpeg_getFreqHz(scratch_.get());
  header.padding = (bytes[2] & 0x02) != 0;
  header.privateBit = (bytes[2] & 0x01) != 0;
  header.mode = bytes[3] >> 6;
  header.modeExt = bytes[3] >> 4 & 3;
  header.copyright = (bytes[3] & 0x08) != 0;
  header.original = (bytes[3] & 0x04) != 0;
  header.emphasis = bytes[3] & 3;
  header.channels = NEB_mpeg_getChannel(scratch_.get());
  header.frameBytes = static_cast<uint32_t>(length);
  header.frameSamples = header.layer == 1 ? 384 : 1152;
  return true;
}

}  // namespace qav::tool
