// 8-bit samples by the library's own path: widened, and low-pass filtered against their coarse noise.
#pragma once

#include <qav.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace qav::tool {

class EightBitFilter {
 public:
  // `level` 1 .. 7 cuts off at 0.24, 0.23, 0.22, 0.20, 0.15, 0.12, 0.10 times the sampling rate.
  EightBitFilter(uint32_t freqHz, unsigned channels, unsigned level);

  // Filter samples that were 8-bit ones; results are appended to `out`. flush() hands out the rest: the output is as long
  // as the input and aligned with it.
  void filter(const int16_t *in, size_t frames, std::vector<int16_t> &out);
  void flush(std::vector<int16_t> &out);

 private:
  struct Delete {
    void operator()(QAV_Handle *handle) const { QAV_deleteHandle(handle); }
  };
  void block(const int16_t *in, size_t frames, std::vector<int16_t> &out);

  static constexpr size_t kBlockFrames = 4096;
  static constexpr size_t kDelay = 15;

  // A converter for each channel: the two-channel filter of one would not join its blocks.
  std::array<std::unique_ptr<QAV_Handle, Delete>, 2> channels_;
  unsigned count_;
  size_t early_ = kDelay;  // results still to be dropped
  std::array<uint8_t, kBlockFrames> bytes_{};
  std::array<int16_t, kBlockFrames> filtered_{};
};

}  // namespace qav::tool
