#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "bench/bench.h"
#include "psycho/psycho.h"
#include "psycho/psycho_state.h"
#include "psycho/rdft.h"

namespace qav::bench {
namespace {

constexpr int kPoints = 1024;

// The data are put back before each transform, as the result would soon leave the range of single precision.
Run transform(CpuLevel level) {
  struct Data {
    alignas(64) float in[kPoints];
    alignas(64) float a[kPoints];
    float w[kPoints / 2];
    int32_t ip[32] = {};
  };
  const auto data = std::make_shared<Data>();
  for (int j = 0; j < kPoints; ++j) data->in[j] = float(j % 37) - 18.0f;
  buildTables(kPoints, data->ip, data->w, level);
  return [data] {
    std::memcpy(data->a, data->in, sizeof(data->a));
    neb_rdft(kPoints, 1, data->a, data->ip, data->w);
    keep(data->a);
  };
}

QAV_BENCH = addStageAtEveryLevel("neb_rdft 1024", transform);

// A channel of two frames in turn, a chord over a little noise.
Run analyse(CpuLevel level) {
  constexpr uint32_t kFrame = 1152;
  struct Free {
    void operator()(PsychoState *s) const { std::free(s); }
  };
  FrameParams fp = {};
  fp.freqHz = 44100;
  const std::shared_ptr<PsychoState> state(initPsycho(fp, level), Free());
  const auto samples = std::make_shared<std::vector<int16_t>>(2 * kFrame);
  uint32_t noise = 1;
  for (uint32_t i = 0; i < 2 * kFrame; ++i) {
    noise = noise * 1664525 + 1013904223;
    double sum = double(noise >> 24) - 128.0;
    for (int h = 1; h <= 9; ++h) sum += 6000.0 / h * std::sin(0.031 * h * i + h);
    (*samples)[i] = int16_t(sum);
  }
  return [state, samples] {
    float smr[32];
    for (uint32_t frame = 0; frame < 2; ++frame) {
      neb_psycho_anal(samples->data() + frame * kFrame, 0, smr, state.get());
      keep(smr);
    }
  };
}

QAV_BENCH = addStageAtEveryLevel("psychoacoustic model, channel-frame", analyse, 2);

}  // namespace
}  // namespace qav::bench
