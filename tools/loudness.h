// Loudness by EBU R128 (ITU-R BS.1770): integrated, range, and true peak.
#pragma once

#include <ebur128.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace qav::tool {

class LoudnessMeter {
 public:
  // `frames`: how many will come, where that is known. Of a long or unknown number the levels are kept in histograms of
  // 0.1 LU, so that the memory stays small.
  LoudnessMeter(uint32_t freqHz, unsigned channels, std::optional<uint64_t> frames);

  void add(const int16_t *samples, size_t frames);
  void add(const double *samples, size_t frames);

  double integratedLufs() const;  // minus infinity for silence
  double rangeLu() const;
  double truePeakDbtp() const;  // of the louder channel; minus infinity for silence

 private:
  struct Destroy {
    void operator()(ebur128_state *state) const { ebur128_destroy(&state); }
  };
  std::unique_ptr<ebur128_state, Destroy> state_;
};

}  // namespace qav::tool
