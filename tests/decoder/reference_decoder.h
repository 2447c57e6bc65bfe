// A decoder written down from the standard and from nothing of the library but its tables: bit by bit, subband by
// subband, sums of cosines in double precision.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "include/qav.h"

namespace qav::test {

// The bits of a frame's body. A read that begins beyond the last byte ends the frame by an exception; missing bits of
// any other read are 0.
class ReferenceBits {
 public:
  struct RanOut {};

  explicit ReferenceBits(std::vector<uint8_t> body) : bytes(std::move(body)) {}
  uint32_t read(uint32_t n);

 private:
  std::vector<uint8_t> bytes;
  size_t at = 0;
};

struct ReferenceSideInfo {
  uint32_t allocation[2][32] = {};
  uint32_t scfsi[2][32] = {};
  uint32_t scaleFactor[2][3][32] = {};
};

ReferenceSideInfo readReferenceSideInfo(ReferenceBits &bits, const FrameParams &fp);

// The fraction that a code stands for, in single precision and in the standard's order of operations.
float referenceFraction1(uint32_t allocation, uint32_t code);
float referenceFraction2(uint32_t levels, uint32_t code);

// Blocks of 32 subband samples of one channel into 32 output values each, times 32768, neither rounded nor clipped.
class ReferenceSynthesis {
 public:
  std::array<double, 32> block(const std::array<float, 32> &samples);

 private:
  std::array<double, 1024> v = {};
  size_t offset = 64;
};

struct ReferenceFrame {
  bool refused = false;
  std::vector<double> pcm;  // interleaved, times 32768; of a frame that runs out, what was complete until then
};

class ReferenceDecoder {
 public:
  // `fp` is the header, derived; `body` what follows it.
  ReferenceFrame decode(const FrameParams &fp, const std::vector<uint8_t> &body);

 private:
  ReferenceSynthesis synthesis[2];
};

// `y` as a sample by the layer's rule.
int16_t referenceSample(int32_t layer, double y);

}  // namespace qav::test
