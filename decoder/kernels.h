// The decoder's inner loops, compiled for several CPUs from one body each; all give the same bits.
#pragma once

#include "base/cpu.h"
#include "decoder/sample_codes.h"
#include "decoder/side_info.h"
#include "decoder/subband_samples.h"
#include "decoder/synthesis.h"

namespace qav {

struct DecoderKernels {
  // Silences the subbands of channel `ch` that have no allocation.
  void (*clearUnallocated)(const uint32_t (&allocation)[32], int32_t ch, SubbandSamples &samples);

  // Codes into scaled subband samples; subbands without codes are left alone.
  void (*I_dequantize_sample)(const FrameCodes &codes, const SideInfo &side, SubbandSamples &samples);
  void (*II_dequantize_sample)(const FrameCodes &codes, const SideInfo &side, SubbandSamples &samples);

  // By number of channels less one: the samples of a frame through the filterbank into interleaved PCM. The caller
  // advances the histories.
  using Synthesis = void (*)(const SubbandSamples &samples, SynthesisHistory *history, int16_t *out);
  Synthesis I_SubBandSynthesis[2];
  Synthesis II_SubBandSynthesis[2];
};

// `level` is one that this CPU has.
const DecoderKernels &decoderKernelsFor(CpuLevel level);

}  // namespace qav
