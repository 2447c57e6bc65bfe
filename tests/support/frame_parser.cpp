#include "tests/support/frame_parser.h"

#include <cmath>
#include <stdexcept>

namespace qav::test {
namespace {

class Bits {
 public:
  Bits(const uint8_t *data, size_t size) : bytes(data), count(size) {}

  uint32_t take(uint32_t n) {
    uint32_t value = 0;
    for (; n > 0; --n, ++at) {
      if (at / 8 >= count) throw std::runtime_error("the frame's bits run out");
      value = value << 1 | bit(at);
    }
    return value;
  }

  uint32_t bit(size_t i) const { return (bytes[i / 8] >> (7 - i % 8)) & 1; }
  size_t position() const { return at; }

 private:
  const uint8_t *bytes;
  size_t count;
  size_t at = 0;
};

// The level counts of Tables B.2a to B.2d, as the columns of the tables.
const std::vector<uint32_t> kWide = {0, 3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
const std::vector<uint32_t> kMiddle = {0, 3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
const std::vector<uint32_t> kEight = {0, 3, 5, 7, 9, 15, 31, 65535};
const std::vector<uint32_t> kFour = {0, 3, 5, 65535};
const std::vector<uint32_t> kLowWide = {0, 3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
const std::vector<uint32_t> kLowEight = {0, 3, 5, 9, 15, 31, 63, 127};

enum class Table { A, B, C, D };

// Table B.2's headings: which bitrates per channel go with which table at which sampling rate.
Table tableFor(uint32_t samplingHz, uint32_t kbpsPerChannel) {
  if (kbpsPerChannel <= 48) return samplingHz == 32000 ? Table::D : Table::C;
  if (kbpsPerChannel <= 80 || samplingHz == 48000) return Table::A;
  return Table::B;
}

uint32_t subbandsOf(Table table) {
  switch (table) {
    case Table::A: return 27;
    case Table::B: return 30;
    case Table::C: return 8;
    default: return 12;
  }
}

const std::vector<uint32_t> &levelsOf(Table table, uint32_t sb) {
  if (table == Table::C || table == Table::D) return sb < 2 ? kLowWide : kLowEight;
  return sb < 3 ? kWide : sb < 11 ? kMiddle : sb < 23 ? kEight : kFour;
}

uint32_t log2Ceil(uint32_t n) {
  uint32_t bits = 0;
  while ((1u << bits) < n) ++bits;
  return bits;
}

// Bits of a codeword for three samples (Table B.4), 0 where each sample has its own.
uint32_t sharedBits(uint32_t levels) { return levels == 3 ? 5 : levels == 5 ? 7 : levels == 9 ? 10 : 0; }

// The remainder of the bits by x^16 + x^15 + x^2 + 1, starting from all ones.
uint32_t checkWordOf(const Bits &bits, size_t sideEnd) {
  uint32_t remainder = 0xFFFF;
  const auto feed = [&](uint32_t bit) {
    const uint32_t top = (remainder >> 15) ^ bit;
    remainder = (remainder << 1 & 0xFFFF) ^ (top != 0 ? 0x8005u : 0u);
  };
  for (size_t i = 16; i < 32; ++i) feed(bits.bit(i));
  for (size_t i = 48; i < sideEnd; ++i) feed(bits.bit(i));
  return remainder;
}

void parse(const uint8_t *data, size_t available, ParsedFrame &f) {
  if (available < 4) throw std::runtime_error("no header");
  Bits header(data, 4);
  if (header.take(12) != 0xFFF) throw std::runtime_error("no sync word");
  f.id = header.take(1);
  f.layerCode = header.take(2);
  f.protectionBit = header.take(1);
  f.bitrateIndex = header.take(4);
  f.samplingIndex = header.take(2);
  f.padding = header.take(1);
  f.privateBit = header.take(1);
  f.mode = header.take(2);
  f.modeExtension = header.take(2);
  f.copyright = header.take(1);
  f.original = header.take(1);
  f.emphasis = header.take(2);
  if (f.id != 1 || f.layerCode != 2) throw std::runtime_error("not MPEG-1 Layer II");
  if (f.bitrateIndex == 0 || f.bitrateIndex == 15) throw std::runtime_error("bitrate index");
  if (f.samplingIndex == 3) throw std::runtime_error("sampling index");
  if (f.mode == 1) throw std::runtime_error("joint stereo is not read here");

  const uint32_t kbps[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
  const uint32_t hz[] = {44100, 48000, 32000};
  f.bitrateKbps = kbps[f.bitrateIndex];
  f.samplingHz = hz[f.samplingIndex];
  f.channels = f.mode == 3 ? 1 : 2;
  f.bytes = 144 * 1000 * f.bitrateKbps / f.samplingHz + f.padding;
  if (f.bytes > available) throw std::runtime_error("the frame is cut short");

  const Table table = tableFor(f.samplingHz, f.bitrateKbps / f.channels);
  f.sblimit = subbandsOf(table);
  Bits bits(data, f.bytes);
  bits.take(32);
  if (f.protectionBit == 0) f.checkWord = bits.take(16);

  for (uint32_t sb = 0; sb < f.sblimit; ++sb)
    for (uint32_t ch = 0; ch < f.channels; ++ch) {
      const std::vector<uint32_t> &levels = levelsOf(table, sb);
      f.allocation[ch][sb] = bits.take(log2Ceil(uint32_t(levels.size())));
      f.levels[ch][sb] = levels[f.allocation[ch][sb]];
    }
  for (uint32_t sb = 0; sb < f.sblimit; ++sb)
    for (uint32_t ch = 0; ch < f.channels; ++ch)
      if (f.levels[ch][sb] != 0) f.scfsi[ch][sb] = bits.take(2);
  if (f.protectionBit == 0) f.computedCheckWord = checkWordOf(bits, bits.position());

  for (uint32_t sb = 0; sb < f.sblimit; ++sb)
    for (uint32_t ch = 0; ch < f.channels; ++ch) {
      if (f.levels[ch][sb] == 0) continue;
      uint32_t s[3];
      switch (f.scfsi[ch][sb]) {
        case 0: s[0] = bits.take(6), s[1] = bits.take(6), s[2] = bits.take(6); break;
        case 1: s[0] = s[1] = bits.take(6), s[2] = bits.take(6); break;
        case 2: s[0] = s[1] = s[2] = bits.take(6); break;
        default: s[0] = bits.take(6), s[1] = s[2] = bits.take(6); break;
      }
      for (uint32_t part = 0; part < 3; ++part) f.scaleIndex[ch][part][sb] = s[part];
    }

  for (uint32_t granule = 0; granule < 12; ++granule)
    for (uint32_t sb = 0; sb < f.sblimit; ++sb)
      for (uint32_t ch = 0; ch < f.channels; ++ch) {
        const uint32_t levels = f.levels[ch][sb];
        if (levels == 0) continue;
        uint32_t *const codes = f.codes[ch][sb] + 3 * granule;
        if (sharedBits(levels) != 0) {
          uint32_t shared = bits.take(sharedBits(levels));
          f.codewords[ch][sb][granule] = shared;
          for (int i = 0; i < 3; ++i, shared /= levels) codes[i] = shared % levels;
        } else {
          for (int i = 0; i < 3; ++i) codes[i] = bits.take(log2Ceil(levels));
        }
      }

  f.bitsUsed = bits.position();
  f.bitsLeft = f.bytes * 8 - f.bitsUsed;
  f.leftAreZero = true;
  for (size_t i = f.bitsUsed; i < f.bytes * 8; ++i) f.leftAreZero = f.leftAreZero && bits.bit(i) == 0;
}

}  // namespace

std::string parseFrame(const uint8_t *data, size_t available, ParsedFrame &frame) {
  frame = {};
  try {
    parse(data, available, frame);
  } catch (const std::runtime_error &error) {
    return error.what();
  }
  return "";
}

std::vector<ParsedFrame> parseStream(const std::vector<uint8_t> &stream) {
  std::vector<ParsedFrame> frames;
  for (size_t at = 0; at < stream.size(); at += frames.back().bytes) {
    frames.emplace_back();
    const std::string fault = parseFrame(stream.data() + at, stream.size() - at, frames.back());
    if (!fault.empty()) throw std::runtime_error("frame at " + std::to_string(at) + ": " + fault);
  }
  return frames;
}

double requantize(uint32_t code, uint32_t levels, uint32_t scaleIndex) {
  // The code with its first bit inverted is a two's complement fraction s; s'' = C (s + D) (Table B.4).
  const uint32_t bits = log2Ceil(levels);
  const double half = std::ldexp(1.0, int(bits) - 1);
  const double fraction = (double(code) - half) / half;
  const double c = 2 * half / levels;
  const bool shared = sharedBits(levels) != 0;
  const double d = shared ? 0.5 : 1 / half;
  return c * (fraction + d) * std::pow(2.0, 1.0 - scaleIndex / 3.0);
}

}  // namespace qav::test
