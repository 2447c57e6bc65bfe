#include "decoder/kernels.h"

#include "decoder/dequant_kernels.inl.h"
#include "decoder/synthesis_kernels.inl.h"

namespace qav {
namespace {

// The kernels of one CPU level: `target` is its attribute, N its number of lanes.
#define QAV_DECODER_KERNELS(Level, target, N)                                                                     \
  struct Level {                                                                                                  \
    target static void clear(const uint32_t (&allocation)[32], int32_t ch, SubbandSamples &x) {                   \
      kernels::clearBody<N>(allocation, ch, x);                                                                   \
    }                                                                                                             \
    target static void dequantize1(const FrameCodes &codes, const SideInfo &side, SubbandSamples &x) {            \
      kernels::I_dequantizeBody<N>(codes, side, x);                                                               \
    }                                                                                                             \
    target static void dequantize2(const FrameCodes &codes, const SideInfo &side, SubbandSamples &x) {            \
      kernels::II_dequantizeBody<N>(codes, side, x);                                                              \
    }                                                                                                             \
    template <int Layer, int Channels>                                                                            \
    target static void synthesis(const SubbandSamples &x, SynthesisHistory *history, int16_t *out) {              \
      kernels::synthesisBody<N, Layer, Channels>(x, history, out);                                                \
    }                                                                                                             \
    static constexpr DecoderKernels table = {                                                                     \
        clear, dequantize1, dequantize2, {synthesis<1, 1>, synthesis<1, 2>}, {synthesis<2, 1>, synthesis<2, 2>}}; \
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
