// Psychoacoustic model 2 (ISO/IEC 11172-3 Annex D.2), one channel of one Layer II frame. The frame is analysed in two
// passes of 576 new samples; the result is the larger ratio of the two.
//
// Departures from the standard: there is no control of pre-echoes, the least masking ratio is chosen by a partition's Bark
// value, and lines 0 and 512 are predicted from their magnitudes alone.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "base/exact_math.h"
#include "psycho/psycho_state.h"

namespace qav {
namespace {

constexpr int kKept = 480;      // samples of the previous frame under the first window
constexpr int kPassStep = 576;  // new samples of a pass
constexpr int kFrame = 1152;
constexpr int kBands = 32;
constexpr int kMinimumBands = 13;  // bands below this one take the least threshold of their lines, the others the mean
constexpr int kLinesPerBand = 17;  // each shares its last line with the next one's first

struct Spectrum {
  float re[kPaddedLines], im[kPaddedLines];  // 0 beyond line 512
};

struct Lines {
  float energy[kPaddedLines];
  float unpredictability[kPaddedLines];
};

struct Partitions {
  float energy[kPaddedPartitions];
  float weighted[kPaddedPartitions];  // energy times unpredictability
};

// The windowed samples and their spectrum. Lines 0 and 512 enter with their magnitude: their sign is no phase.
void transform(const int16_t *front, int frontCount, const int16_t *rest, PsychoState &state, Spectrum &spectrum) {
  float buffer[kTransformSize];
  for (int j = 0; j < frontCount; ++j) buffer[j] = analysisWindow[size_t(j)] * float(front[j]);
  for (int j = frontCount; j < kTransformSize; ++j) buffer[j] = analysisWindow[size_t(j)] * float(rest[j - frontCount]);
  neb_rdft(kTransformSize, 1, buffer, state.fft_ip, state.fft_w);
  spectrum.re[0] = std::fabs(buffer[0]);
  spectrum.im[0] = 0.0f;
  for (int k = 1; k < kLines - 1; ++k) {
    spectrum.re[k] = buffer[2 * k];
    spectrum.im[k] = buffer[2 * k + 1];
  }
  spectrum.re[kLines - 1] = std::fabs(buffer[1]);
  for (int k = kLines; k < kPaddedLines; ++k) spectrum.re[k] = 0.0f;
  for (int k = kLines - 1; k < kPaddedLines; ++k) spectrum.im[k] = 0.0f;
}

// Predicts each line from the two passes before: the magnitude goes on in a straight line and so does the phase. The
// unpredictability is the distance of the line from its prediction, over the sum of the two magnitudes. Phases are kept
// as unit vectors, so that no angle is ever computed: the predicted one is old^2 / oldest.
//
// `oldest` is the history of two passes ago; it becomes that of this pass.
void predict(const Spectrum &now, const LineHistory &old, LineHistory &oldest, Lines &lines) {
  for (int k = 0; k < kPaddedLines; ++k) {
    const float re = now.re[k], im = now.im[k];
    const float energy = re * re + im * im;
    const float magnitude = std::sqrt(energy);
    const float oldRe = old.phaseRe[k], oldIm = old.phaseIm[k];
    const float squareRe = oldRe * oldRe - oldIm * oldIm, squareIm = 2.0f * (oldRe * oldIm);
    const float phaseRe = squareRe * oldest.phaseRe[k] + squareIm * oldest.phaseIm[k];
    const float phaseIm = squareIm * oldest.phaseRe[k] - squareRe * oldest.phaseIm[k];
    const float predicted = 2.0f * old.magnitude[k] - oldest.magnitude[k];
    const float offRe = re - predicted * phaseRe, offIm = im - predicted * phaseIm;
    const float distance = std::sqrt(offRe * offRe + offIm * offIm);
    const float sum = magnitude + std::fabs(predicted);
    lines.energy[k] = energy;
    lines.unpredictability[k] = sum != 0.0f ? distance / sum : 0.0f;
    oldest.phaseRe[k] = magnitude != 0.0f ? re / magnitude : 1.0f;
    oldest.phaseIm[k] = magnitude != 0.0f ? im / magnitude : 0.0f;
    oldest.magnitude[k] = magnitude;
  }
}

void group(const Lines &lines, const int32_t *numlines, Partitions &grouped) {
  int line = 0;
  for (int p = 0; p < kPaddedPartitions; ++p) {
    double energy = 0.0, weighted = 0.0;
    for (const int end = line + numlines[p]; line < end; ++line) {
      energy += double(lines.energy[line]);
      weighted += double(lines.energy[line]) * double(lines.unpredictability[line]);
    }
    grouped.energy[p] = float(energy);
    grouped.weighted[p] = float(weighted);
  }
}

// Spreads energy and weighted unpredictability over the neighbouring partitions; every sum runs in the maskers' order.
void psy_mulSum(const Partitions &grouped, const float (*spread)[kPaddedPartitions], Partitions &result) {
  result = {};
  for (int k = 0; k < kPartitions; ++k)
    for (int p = 0; p < kPaddedPartitions; ++p) {
      result.energy[p] += spread[k][p] * grouped.energy[k];
      result.weighted[p] += spread[k][p] * grouped.weighted[k];
    }
}

// The noise energy per line that each partition hides.
void permissibleNoise(const Partitions &spread, const PsychoState &state, float *nb) {
  for (int p = 0; p < kPaddedPartitions; ++p) {
    const float ecb = spread.energy[p];
    const float cb = ecb != 0.0f ? std::clamp(spread.weighted[p] / ecb, 0.05f, 0.5f) : 0.05f;
    const double tonality = -0.434294482 * exactLog(double(cb)) - 0.301029996;
    const double ratioDb = std::max(tonality * double(state.tmn_minus_nmt[p]) + 5.5, double(state.bmax_part[p]));
    nb[p] = float(double(ecb) * exactExp(ratioDb * -0.2302585093)) * state.norm[p];
  }
}

// The threshold of each line: what its partition hides, but at least the threshold in quiet.
void lineThresholds(const float *nb, const PsychoState &state, float *threshold) {
  int line = 0;
  for (int p = 0; p < kPartitions; ++p)
    for (const int end = line + state.numlines[p]; line < end; ++line)
      threshold[line] = std::max(nb[p], state.absthr[line]);
}

// Energy over threshold of each band. FLT_MIN keeps a band without a threshold from dividing by zero.
void bandRatios(const float *energy, const float *threshold, float *ratio) {
  for (int sb = 0; sb < kBands; ++sb) {
    float sum = 0.0f, least = FLT_MAX, thresholds = 0.0f;
    for (int i = 0; i < kLinesPerBand; ++i) {
      sum += energy[16 * sb + i];
      thresholds += threshold[16 * sb + i];
      least = std::min(least, threshold[16 * sb + i]);
    }
    ratio[sb] = sum / ((sb < kMinimumBands ? least * float(kLinesPerBand) : thresholds) + FLT_MIN);
  }
}

void analysePass(const Spectrum &spectrum, const LineHistory &old, LineHistory &oldest, const PsychoState &state,
                 float *ratio) {
  Lines lines;
  predict(spectrum, old, oldest, lines);
  Partitions grouped, spread;
  group(lines, state.numlines, grouped);
  psy_mulSum(grouped, state.spread, spread);
  float nb[kPaddedPartitions], threshold[kPaddedLines];
  permissibleNoise(spread, state, nb);
  lineThresholds(nb, state, threshold);
  bandRatios(lines.energy, threshold, ratio);
}

}  // namespace
}  // namespace qav

using namespace qav;

void neb_psycho_anal(const int16_t *samples, uint32_t ch, float *smr, PsychoState *state) {
  Spectrum spectrum;
  float ratio[2][kBands];
  LineHistory(&history)[2] = state->history[ch];
  // The second window begins 576 samples after the first, which is within the frame.
  transform(state->savebuf[ch], kKept, samples, *state, spectrum);
  analysePass(spectrum, history[1], history[0], *state, ratio[0]);
  transform(samples + kPassStep - kKept, kTransformSize, nullptr, *state, spectrum);
  analysePass(spectrum, history[0], history[1], *state, ratio[1]);
  std::memcpy(state->savebuf[ch], samples + kFrame - kKept, sizeof(state->savebuf[ch]));

  for (int sb = 0; sb < kBands; ++sb)
    smr[sb] = float(4.342944819 * exactLog(double(std::max(FLT_MIN, std::max(ratio[0][sb], ratio[1][sb])))));
}
