// Energy and unpredictability of the spectral lines (ISO/IEC 11172-3 Annex D.2), with W lanes.
#pragma once

#include "psycho/lane_math.inl.h"
#include "psycho/psycho_state.h"
#include "psycho/spectrum.h"

namespace qav {

// What the following stages need of the lines of one pass.
struct alignas(64) LineEnergies {
  float energy[kPaddedLines];
  float weighted[kPaddedLines];  // energy times unpredictability
};

template <int W>
struct LinePhase {
  Lanes<float, W> re, im, magnitude;
};

template <int W>
NEB_INLINE LinePhase<W> loadPhase(const LineHistory &history, int k) {
  using V = Lanes<float, W>;
  return {loadLanes<V>(&history.phaseRe[k]), loadLanes<V>(&history.phaseIm[k]), loadLanes<V>(&history.magnitude[k])};
}
template <int W>
NEB_INLINE void storePhase(LineHistory &history, int k, const LinePhase<W> &phase) {
  storeLanes(&history.phaseRe[k], phase.re);
  storeLanes(&history.phaseIm[k], phase.im);
  storeLanes(&history.magnitude[k], phase.magnitude);
}

// Predicts lines from the two passes before: the magnitude goes on in a straight line and so does the phase. The
// unpredictability is the distance of the line from its prediction, over the sum of the two magnitudes. Phases are kept
// as unit vectors, so that no angle is ever computed: the predicted one is old^2 / oldest.
template <int W>
NEB_INLINE LinePhase<W> predictLines(const Spectrum &spectrum, int k, const LinePhase<W> &old,
                                     const LinePhase<W> &oldest, LineEnergies &lines) {
  using V = Lanes<float, W>;
  // A line this weak is empty: far below what any sample but zero leaves. It also bounds what is divided by.
  constexpr float kEmpty = 0x1p-100f;
  const V re = loadLanes<V>(&spectrum.re[k]), im = loadLanes<V>(&spectrum.im[k]);
  const V energy = re * re + im * im;
  const V magnitude = squareRoot<W>(energy);
  const V predicted = (old.magnitude + old.magnitude) - oldest.magnitude;
  const V squareRe = old.re * old.re - old.im * old.im, squareIm = (old.re + old.re) * old.im;
  const V phaseRe = squareRe * oldest.re + squareIm * oldest.im;
  const V phaseIm = squareIm * oldest.re - squareRe * oldest.im;
  const V offRe = re - predicted * phaseRe, offIm = im - predicted * phaseIm;
  const V distance = squareRoot<W>(offRe * offRe + offIm * offIm);
  const V sum = (magnitude + maximum<W>(predicted, -predicted)) + kEmpty;
  // One division for both quotients: by the sum, and by the magnitude, where that is not 0.
  const V one = energy < kEmpty ? all<W>(1.0f) : all<W>(0.0f);
  const V divisor = magnitude + one;
  const V inverse = 1.0f / (divisor * sum);
  const V inverseMagnitude = inverse * sum, inverseSum = inverse * divisor;
  storeLanes(&lines.energy[k], energy);
  storeLanes(&lines.weighted[k], V(energy * (distance * inverseSum)));
  return {(re + one) * inverseMagnitude, im * inverseMagnitude, magnitude};
}

// Both passes; the first is predicted from the two of the previous frame.
template <int W>
NEB_INLINE void predictFrame(const Spectrum (&spectra)[2], LineHistory (&history)[2], LineEnergies (&lines)[2]) {
  for (int k = 0; k < kPaddedLines; k += W) {
    const LinePhase<W> oldest = loadPhase<W>(history[0], k), old = loadPhase<W>(history[1], k);
    const LinePhase<W> first = predictLines<W>(spectra[0], k, old, oldest, lines[0]);
    const LinePhase<W> second = predictLines<W>(spectra[1], k, first, old, lines[1]);
    storePhase<W>(history[0], k, first);
    storePhase<W>(history[1], k, second);
  }
}

}  // namespace qav
