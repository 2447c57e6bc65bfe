// Loudness by EBU R128 (ITU-R BS.1770): integrated, range, and true peak.
#pragma once

#include <ebur128.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace qav::tool {

class LoudnessMeter {
 public:
  // `frames`: how many will come, where that is known. Of a long or unknown number the levels are kept in histograms of
  // 0.1 LU, so that the memory stays small.
  LoudnessMeter(uint32_t freqHz, unsigned channels, std::optional<uint64_t> frames);

  // Follow the momentary and the short-term loudness too, ten times a second: their greatest values. To be called first.
  void followMaxima() { followsMaxima_ = true; }

  void add(const int16_t *samples, size_t frames);
  void add(const double *samples, size_t frames);

  double integratedLufs() const;  // minus infinity for silence
  double rangeLu() const;
  double truePeakDbtp() const;  // of the louder channel; minus infinity for silence

  // Minus infinity for silence, and for less than one window of 0.4 and 3 seconds.
  double greatestMomentaryLufs() const { return greatestMomentary_; }
  double greatestShortTermLufs() const { return greatestShortTerm_; }

 private:
  template <typename Sample>
  void addInSteps(const Sample *samples, size_t frames, int (*take)(ebur128_state *, const Sample *, size_t));
  void lookForMaxima();

  struct Destroy {
    void operator()(ebur128_state *state) const { ebur128_destroy(&state); }
  };
  std::unique_ptr<ebur128_state, Destroy> state_;
  bool followsMaxima_ = false;
  uint64_t frames_ = 0;  // followed
  double greatestMomentary_ = -std::numeric_limits<double>::infinity();
  double greatestShortTerm_ = -std::numeric_limits<double>::infinity();
};

}  // namespace qav::tool
