// A reader of MPEG-1 Layer II frames (stereo, dual channel or single channel) that takes everything from ISO/IEC 11172-3:
// it shares no table and no code with the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qav::test {

struct ParsedFrame {
  // the header, as it stands
  uint32_t id, layerCode, protectionBit, bitrateIndex, samplingIndex, padding, privateBit, mode, modeExtension,
      copyright, original, emphasis;

  // what follows from it
  uint32_t channels, bitrateKbps, samplingHz, sblimit;
  size_t bytes;  // length of the frame

  // the rest
  uint32_t checkWord, computedCheckWord;  // 0 without protection
  uint32_t allocation[2][32];
  uint32_t levels[2][32];  // of the quantiser; 0 where there is none
  uint32_t scfsi[2][32];
  uint32_t scaleIndex[2][3][32];
  uint32_t codes[2][32][36];      // of every sample; a shared codeword taken apart
  uint32_t codewords[2][32][12];  // shared by three samples, as they stand
  size_t bitsUsed, bitsLeft;
  bool leftAreZero;
};

// Reads the frame at `data`, of which `available` bytes are there. An empty text is success; otherwise it says what is
// wrong.
std::string parseFrame(const uint8_t *data, size_t available, ParsedFrame &frame);

// Cuts a stream into frames that follow one another without a gap. Throws std::runtime_error where that is not so.
std::vector<ParsedFrame> parseStream(const std::vector<uint8_t> &stream);

// A sample from its code, level count and scale factor index (clause 2.4.3.3.4), in double precision.
double requantize(uint32_t code, uint32_t levels, uint32_t scaleIndex);

}  // namespace qav::test
