#include <memory>
#include <vector>

#include "bench/bench.h"
#include "stream/stream.h"

namespace qav::bench {
namespace {

struct TermRate {
  void operator()(FreqChangeState *s) const { NEB_freqChangeTerm(s); }
};
struct TermFifo {
  void operator()(ByteFifo *f) const { NEB_bufferingTerm(f); }
};

// 44100 to 48000 Hz, the input of 1152 output frames at a time.
Run resample(CpuLevel level, uint32_t channels) {
  constexpr uint32_t kInFrames = 1058;  // 1152 * 44100 / 48000
  FreqChangeState *s = nullptr;
  NEB_freqChangeInit(&s, 44100, 48000, channels, 0);
  s->interpolate = interpolateFor(level, channels);
  const std::shared_ptr<FreqChangeState> state(s, TermRate());
  const auto in = std::make_shared<std::vector<int16_t>>(kInFrames * channels);
  for (size_t i = 0; i < in->size(); ++i) (*in)[i] = int16_t(i * 7919);
  const auto out = std::make_shared<std::vector<int16_t>>((1152 + 4) * channels);
  return [state, in, out] {
    uint32_t frames;
    NEB_freqChange(state.get(), in->data(), kInFrames, out->data(), &frames);
    keep(out->data());
  };
}

QAV_BENCH = addStageAtEveryLevel("resampling to 1152 stereo frames", [](CpuLevel level) { return resample(level, 2); });
QAV_BENCH = addStageAtEveryLevel("resampling to 1152 mono frames", [](CpuLevel level) { return resample(level, 1); });

// A chunk of 4096 bytes cut into units of 627 bytes (a frame of 192 kbit/s at 44100 Hz): six or seven units, one of
// them assembled from two chunks, and the rest carried.
Run cutChunks() {
  constexpr uint32_t kChunk = 4096, kUnit = 627;
  ByteFifo *f = nullptr;
  NEB_bufferingInit(&f, kChunk);
  const std::shared_ptr<ByteFifo> fifo(f, TermFifo());
  const auto chunk = std::make_shared<std::vector<uint8_t>>(kChunk, uint8_t(1));
  return [fifo, chunk] {
    NEB_bufferingLock(fifo.get(), chunk->data(), kChunk);
    while (NEB_bufferingGetSize(fifo.get()) >= int32_t(kUnit)) {
      const uint8_t *unit;
      NEB_bufferingGet(fifo.get(), kUnit, &unit);
      keep(unit);
    }
    NEB_bufferingUnlock(fifo.get());
  };
}

QAV_BENCH = addStage("FIFO: 4096 bytes into units of 627", cutChunks);

}  // namespace
}  // namespace qav::bench
