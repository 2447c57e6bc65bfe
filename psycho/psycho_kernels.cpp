#include "psycho/psycho_kernels.h"

#include "psycho/psycho_anal.inl.h"

namespace qav {
namespace {

void rdft1024Baseline(float *a) { rdft1024InPlace<4>(a); }
void analyseBaseline(const int16_t *samples, const PsychoTables &tables, PsychoChannel &channel, float *smr) {
  analyseFrame<4>(samples, tables, channel, smr);
}
constexpr PsychoKernels kBaseline = {rdft1024Baseline, analyseBaseline};

#ifdef NEB_TARGET

NEB_TARGET("avx2") void rdft1024Avx2(float *a) { rdft1024InPlace<8>(a); }
NEB_TARGET("avx2")
void analyseAvx2(const int16_t *samples, const PsychoTables &tables, PsychoChannel &channel, float *smr) {
  analyseFrame<8>(samples, tables, channel, smr);
}
constexpr PsychoKernels kAvx2 = {rdft1024Avx2, analyseAvx2};

NEB_TARGET("avx512f,avx512bw,avx512dq,avx512vl") void rdft1024Avx512(float *a) { rdft1024InPlace<16>(a); }
NEB_TARGET("avx512f,avx512bw,avx512dq,avx512vl")
void analyseAvx512(const int16_t *samples, const PsychoTables &tables, PsychoChannel &channel, float *smr) {
  analyseFrame<16>(samples, tables, channel, smr);
}
constexpr PsychoKernels kAvx512 = {rdft1024Avx512, analyseAvx512};

#endif

}  // namespace

const PsychoKernels &psychoKernels(CpuLevel level) {
#ifdef NEB_TARGET
  if (level == CpuLevel::Avx512) return kAvx512;
  if (level == CpuLevel::Avx2) return kAvx2;
#endif
  (void)level;
  return kBaseline;
}

}  // namespace qav
