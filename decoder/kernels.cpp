#include "decoder/kernels.h"

#include "decoder/dequant_kernels.inl.h"
#include "decoder/synthesis_kernels.inl.h"

namespace qav {
namespace {

template <int Channels>
NEB_INLINE void storeBody(const ChannelPcm *pcm, int32_t frames, int16_t *out) {
  for (int32_t t = 0; t < frames; ++t)
    for (int32_t ch = 0; ch < Channels; ++ch) out[Channels * t + ch] = int16_t(pcm[ch].sample[t]);
}

// The kernels of one CPU level: `target` is its attribute, N its number of lanes.
#define QAV_DECODER_KERNELS(Level, target, N)                                                                 \
  struct Level {                                                                                              \
    target static void dequantize1(const FrameCodes &c, const GranuleScales &s, SubbandSamples &x) {          \
      kernels::I_dequantizeBody<N>(c, s, x);                                                                  \
    }                                                                                                         \
    target static void dequantize2(const FrameCodes &c, const GranuleScales &s, SubbandSamples &x) {          \
      kernels::II_dequantizeBody<N>(c, s, x);                                                                 \
    }                                                                                                         \
    target static void synthesis1(const float (*x)[kSampleStride], SynthesisHistory &h, ChannelPcm &pcm) {    \
      kernels::synthesisBody<N, 1>(x, h, pcm);                                                                \
    }                                                                                                         \
    target static void synthesis2(const float (*x)[kSampleStride], SynthesisHistory &h, ChannelPcm &pcm) {    \
      kernels::synthesisBody<N, 2>(x, h, pcm);                                                                \
    }                                                                                                         \
    target static void storeMono(const ChannelPcm *p, int32_t n, int16_t *out) { storeBody<1>(p, n, out); }   \
    target static void storeStereo(const ChannelPcm *p, int32_t n, int16_t *out) { storeBody<2>(p, n, out); } \
    static constexpr DecoderKernels table = {                                                                 \
        dequantize1, dequantize2, synthesis1, synthesis2, storeMono, storeStereo};                            \
  }

QAV_DECODER_KERNELS(Baseline, , 4);
#ifdef NEB_TARGET
QAV_DECODER_KERNELS(Avx2, NEB_TARGET("avx2"), 8);
QAV_DECODER_KERNELS(Avx512, NEB_TARGET("avx512f,avx512bw,avx512dq,avx512vl"), 16);
#endif

}  // namespace

const DecoderKernels &decoderKernelsFor(CpuLevel level) {
#ifdef NEB_TARGET
  if (level == CpuLevel::Avx512) return Avx512::table;
  if (level == CpuLevel::Avx2) return Avx2::table;
#endif
  static_cast<void>(level);
  return Baseline::table;
}

}  // namespace qav
