#include "decoder/dequant.h"

#include <cstring>

#include "format/format.h"

namespace qav {

void spreadScaleFactors(const SideInfo &side, const FrameParams &frame, GranuleScales &scales) {
  for (int32_t ch = 0; ch < frame.channels; ++ch)
    for (int32_t sb = 0; sb < kSubbands; ++sb) {
      if (side.allocation[ch][sb] == 0) continue;
      for (int32_t part = 0; part < 3; ++part) {
        const float scale = multiple[side.scaleFactor[ch][part][sb]];
        for (int32_t g = 0; g < 4; ++g) scales.value[ch][sb][4 * part + g] = scale;
      }
    }
}

void clearUnallocated(const SideInfo &side, const FrameParams &frame, SubbandSamples &samples) {
  for (int32_t ch = 0; ch < frame.channels; ++ch)
    for (int32_t sb = 0; sb < kSubbands; ++sb)
      if (side.allocation[ch][sb] == 0) std::memset(samples.value[ch][sb], 0, sizeof samples.value[ch][sb]);
}

}  // namespace qav
