// The decoder's inner loops, compiled for several CPUs from one body each; all give the same bits.
#pragma once

#include "base/cpu.h"
#include "decoder/dequant.h"
#include "decoder/synthesis.h"

namespace qav {

struct DecoderKernels {
  // Codes into scaled subband samples; subbands without codes are left alone.
  void (*I_dequantize_sample)(const FrameCodes &codes, const GranuleScales &scales, SubbandSamples &samples);
  void (*II_dequantize_sample)(const FrameCodes &codes, const GranuleScales &scales, SubbandSamples &samples);

  // One channel's samples of a frame, 12 or 36 blocks, through the filterbank. The caller advances the history.
  void (*I_SubBandSynthesis)(const float (*samples)[kSampleStride], SynthesisHistory &history, ChannelPcm &pcm);
  void (*II_SubBandSynthesis)(const float (*samples)[kSampleStride], SynthesisHistory &history, ChannelPcm &pcm);

  // The PCM of one or two channels into the caller's memory, `frames` sample frames.
  void (*storeMono)(const ChannelPcm *pcm, int32_t frames, int16_t *out);
  void (*storeStereo)(const ChannelPcm *pcm, int32_t frames, int16_t *out);
};

// `level` is one that this CPU has.
const DecoderKernels &decoderKernelsFor(CpuLevel level);

}  // namespace qav
