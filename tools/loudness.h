// Loudness by EBU R128 (ITU-R BS.1770): integrated, range, and true peak. Constant memory.
#pragma once

#include <ebur128.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qav::tool {

class LoudnessMeter {
 public:
  LoudnessMeter(uint32_t freqHz, unsigned channels);

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
