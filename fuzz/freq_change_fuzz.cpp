// The sampling-rate converter: every output frame within half a step of the exact line in long double, any cut and every
// CPU level the same as one block at the baseline.
#include "include/qav.h"

#include <cmath>

#include "fuzz/fuzz.h"
#include "stream/freq_change.h"

using namespace qav;
using namespace qav::fuzz;

namespace {

struct Stream {
  uint32_t inHz, outHz, channels, totalFrames;
};

FreqChangeState *makeState(const Stream &stream, CpuLevel level) {
  FreqChangeState *s = nullptr;
  FUZZ_CHECK(NEB_freqChangeInit(&s, stream.inHz, stream.outHz, stream.channels, stream.totalFrames) == 0);
  s->interpolate = interpolateFor(level, s->channels);
  return s;
}

// Appends what a block yields. The output has exactly the room that the manual asks for.
void convert(FreqChangeState *s, const int16_t *in, uint32_t frames, const Stream &stream, Samples &out) {
  const uint32_t c = stream.channels == 2 ? 2 : 1;
  const Block<int16_t> block(in, size_t(frames) * c);
  const double ratio = stream.inHz == 0 ? 0.0 : double(stream.outHz) / stream.inHz;
  Block<int16_t> room((size_t(std::ceil(frames * ratio)) + 2) * c);
  uint32_t written = ~0u;
  FUZZ_CHECK(NEB_freqChange(s, block.data(), frames, room.data(), &written) == 0);
  FUZZ_CHECK(size_t(written) * c <= room.size());
  out.insert(out.end(), room.data(), room.data() + size_t(written) * c);
}

void checkAgainstLine(const Samples &in, const Samples &out, const Stream &stream) {
  const uint32_t c = stream.channels == 2 ? 2 : 1;
  const uint64_t frames = in.size() / c, produced = out.size() / c;
  if (stream.inHz == 0 || stream.outHz == 0) {
    FUZZ_CHECK(produced == 0);
    return;
  }
  const uint64_t last = stream.totalFrames == 0 ? UINT64_MAX : stream.totalFrames - 1;
  for (uint64_t j = 0; j < produced; ++j) {
    const uint64_t i = j * stream.inHz / stream.outHz;
    const long double f = static_cast<long double>(j * stream.inHz % stream.outHz) / stream.outHz;
    if (i >= last && j + 1 == produced) {
      for (uint32_t ch = 0; ch < c; ++ch) FUZZ_CHECK(out[j * c + ch] == in[last * c + ch]);
      continue;
    }
    for (uint32_t ch = 0; ch < c; ++ch) {
      // At a whole position rounding may have put the frame between its two neighbours a hair further on or back.
      const long double here = in[std::min(i, frames - 1) * c + ch], there = in[std::min(i + 1, frames - 1) * c + ch];
      const long double y = (1 - f) * here + f * there;
      FUZZ_CHECK(std::fabs(y - out[j * c + ch]) <= 0.5L + 1e-6L);
    }
  }
  // Nothing that could be known is held back, but for a frame where rounding decides.
  if (stream.totalFrames == 0 && frames > 0) {
    const uint64_t due = ((frames - 1) * stream.outHz + stream.inHz - 1) / stream.inHz;
    FUZZ_CHECK(produced == due || produced + 1 == due || produced == due + 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static constexpr uint32_t kRates[] = {2000,  4000,  8000,  11025, 16000, 22050, 24000,
                                        32000, 44100, 48000, 88200, 96000, 192000};
  Input in(data, size);
  const uint8_t kind = in.byte();
  Stream stream;
  stream.inHz = kind & 1 ? in.anyNumber() : in.pick(kRates);
  stream.outHz = kind & 2 ? in.anyNumber() : in.pick(kRates);
  stream.channels = kind & 4 ? in.anyNumber() : 1 + (kind >> 3 & 1);
  stream.totalFrames = kind & 16 ? 1 + in.word() % 300 : 0;
  if (stream.inHz != 0 && stream.outHz / stream.inHz > 64) return 0;  // too much output for one input

  const uint32_t c = stream.channels == 2 ? 2 : 1;
  Bytes cuts = in.bytes(in.byte());
  Samples pcm = in.left() >= 16 ? in.samples(4096) : madeSamples(in, 700 * c);
  pcm.resize(pcm.size() / c * c);
  if (stream.totalFrames > 0) pcm.resize(std::min(pcm.size(), size_t(stream.totalFrames) * c));
  const uint32_t frames = uint32_t(pcm.size() / c);

  Samples whole;
  FreqChangeState *s = makeState(stream, CpuLevel::Baseline);
  convert(s, pcm.data(), frames, stream, whole);
  NEB_freqChangeTerm(s);
  checkAgainstLine(pcm, whole, stream);

  for (const CpuLevel level : levelsHere()) {
    Samples cut;
    s = makeState(stream, level);
    uint32_t at = 0;
    for (size_t i = 0; at < frames; ++i) {
      const uint32_t n = cuts.empty() ? frames : std::min(frames - at, uint32_t(cuts[i % cuts.size()]));
      convert(s, pcm.data() + size_t(at) * c, n, stream, cut);
      at += n;
      if (n == 0 && i > 512) break;  // nothing but empty blocks
    }
    NEB_freqChangeTerm(s);
    if (at == frames) FUZZ_CHECK(cut == whole);
  }
  return 0;
}
