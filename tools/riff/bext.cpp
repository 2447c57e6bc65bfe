#include "tools/riff/bext.h"

#include <cmath>

#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

// Offsets in the chunk's content.
constexpr uint64_t kVersion = 346;
constexpr uint64_t kLoudness = 412;

}  // namespace

uint16_t bextLevel(double value) {
  const double hundredths = std::round(value * 100.0);
  const bool isKnown = std::fabs(hundredths) <= 9999.0;  // false for NaN too
  return isKnown ? static_cast<uint16_t>(static_cast<int16_t>(hundredths)) : uint16_t{0x7FFF};
}

void patchBextLoudness(OutputFile &out, uint64_t offset, const Loudness &loudness) {
  const uint8_t version[2] = {2, 0};
  out.patch(offset + kVersion, version, 2);
  uint8_t levels[10];
  uint8_t *to = levels;
  for (const double value : {loudness.integratedLufs, loudness.rangeLu, loudness.truePeakDbtp,
                             loudness.greatestMomentaryLufs, loudness.greatestShortTermLufs}) {
    putLe(to, bextLevel(value), 2);
    to += 2;
  }
  out.patch(offset + kLoudness, levels, sizeof levels);
}

}  // namespace qav::tool
