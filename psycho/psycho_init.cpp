// Set-up of psychoacoustic model 2 (ISO/IEC 11172-3 Annex D.2): everything that depends on the sampling rate alone.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "base/exact_math.h"
#include "psycho/psycho.h"
#include "psycho/psycho_state.h"

namespace qav {
namespace {

constexpr float kNoiseMaskingTone = 5.5f;  // dB

// The Bark value of a frequency below the highest edge: linear within a critical band.
float barkOf(float freqHz) {
  int j = 1;
  while (freqHz > crit_band[j]) ++j;
  return float(j - 1) + (freqHz - crit_band[j - 1]) / (crit_band[j] - crit_band[j - 1]);
}

// Divides the lines into partitions that a line leaves as soon as it lies more than a third of a Bark above the
// partition's first. `mean` receives the mean Bark value of each partition, 0 for the unused ones.
void dividePartitions(int32_t freqHz, int32_t *numlines, float *mean) {
  const float lineHz = float(freqHz) * (1.0f / kTransformSize);
  float lowest = barkOf(0.0f), sum = lowest;
  int partition = 0, count = 1;
  const auto close = [&] {
    numlines[partition] = count;
    mean[partition] = sum / float(count);
  };
  for (int line = 1; line < kLines; ++line) {
    const float bark = barkOf(float(line) * lineHz);
    if (bark - lowest > 0.33f) {
      close();
      ++partition;
      lowest = sum = bark;
      count = 1;
    } else {
      sum += bark;
      ++count;
    }
  }
  close();
}

// How much of a masker's energy appears in a partition `distance` Bark above it.
float spreading(float maskee, float masker) {
  const double dz = (double(maskee) - double(masker)) * 1.05;
  const double x = dz >= 0.5 && dz <= 2.5 ? 8.0 * ((dz - 0.5) * (dz - 0.5) - 2.0 * (dz - 0.5)) : 0.0;
  const double t = dz + 0.474;
  const double y = 15.811389 + 7.5 * t - 17.5 * std::sqrt(1.0 + t * t);
  return y <= -100.0 ? 0.0f : float(exactExp((x + y) * 0.2302585093));
}

// For each four columns of the spreading matrix the range of rows with an entry other than 0.
void findMaskers(PsychoTables &t) {
  for (int quad = 0; quad < kPaddedPartitions / 4; ++quad) {
    int first = kPartitions, end = 0;
    for (int k = 0; k < kPartitions; ++k) {
      const float *entry = &t.spread[k][4 * quad];
      if (t.numlines[k] == 0 || (entry[0] == 0.0f && entry[1] == 0.0f && entry[2] == 0.0f && entry[3] == 0.0f))
        continue;
      first = std::min(first, k);
      end = k + 1;
    }
    t.firstMasker[quad] = uint8_t(first);
    t.endMasker[quad] = uint8_t(end);
  }
}

void setUpPartitions(int32_t freqHz, PsychoTables &t) {
  float bark[kPartitions] = {};
  dividePartitions(freqHz, t.numlines, bark);
  for (int p = 0; p < kPartitions; ++p) {
    float gain = 0.0f;
    for (int k = 0; k < kPartitions; ++k) {
      t.spread[k][p] = spreading(bark[p], bark[k]);
      gain += t.spread[k][p];
    }
    const float weight = gain * float(t.numlines[p]);
    t.norm[p] = weight != 0.0f ? 1.0f / weight : 0.0f;
    t.tmn_minus_nmt[p] = double(std::max(15.5f + bark[p], 24.5f) - kNoiseMaskingTone);
    t.bmax_part[p] = double(bmax[int(bark[p] + 0.5f)]);
  }
  findMaskers(t);
  while (t.numlines[t.smallPartitions] <= 4) ++t.smallPartitions;
}

}  // namespace

PsychoState *initPsycho(const FrameParams &fp, CpuLevel level) {
  // Other rates may need more partitions than there are.
  constexpr int32_t kRates[3] = {44100, 48000, 32000};
  if (fp.samplingIndex < 0 || fp.samplingIndex > 2 || fp.freqHz != kRates[fp.samplingIndex]) return nullptr;
  const auto s = static_cast<PsychoState *>(std::calloc(1, sizeof(PsychoState)));
  if (s == nullptr) return nullptr;
  s->kernels = &psychoKernels(level);
  s->tables.absthr = absthrTbl[fp.samplingIndex].data();
  setUpPartitions(fp.freqHz, s->tables);
  for (PsychoChannel &channel : s->channel)
    for (LineHistory &pass : channel.history) std::fill(std::begin(pass.phaseRe), std::end(pass.phaseRe), 1.0f);
  return s;
}

}  // namespace qav

PsychoState *neb_psycho_analInit(const FrameParams *fp) { return qav::initPsycho(*fp, qav::detectCpuLevel()); }
