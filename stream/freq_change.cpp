#include "stream/freq_change.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/cpu.h"

namespace qav {
namespace {

// The kernels take positions in the block as 32-bit integers, so one run covers no more input and output than this.
constexpr uint64_t kMaxRunFrames = 1u << 30;

// The first output frame, from `from` on, that lies at or behind input frame `position`. The quotient's rounding never
// takes it further than that: it is far below 2^52.
uint64_t firstOutputAt(uint64_t position, double step, uint64_t from) {
  const double x = double(position);
  uint64_t j = std::max(from, uint64_t(x / step));
  while (double(j) * step < x) ++j;
  return j;
}

// The output frames that lie between two frames of the block, or between the last frame before it and its first.
uint32_t interpolateBlock(FreqChangeState &s, const uint8_t *in, uint32_t frames, uint8_t *out) {
  const size_t frameBytes = s.channels * sizeof(int16_t);
  const uint64_t before = s.consumed;
  const uint64_t limit = std::min(s.lastIndex, before + frames - 1);
  const uint64_t blockStart = firstOutputAt(std::min(before, limit), s.step, s.produced);
  const uint64_t end = firstOutputAt(limit, s.step, blockStart);
  const uint64_t first = s.produced;

  if (blockStart > first) {
    uint8_t border[2 * 2 * sizeof(int16_t)];
    std::memcpy(border, s.history + sizeof s.history - frameBytes, frameBytes);
    std::memcpy(border + frameBytes, in, frameBytes);
    s.interpolate(border, {double(first), s.step, double(before) - 1.0, uint32_t(blockStart - first)}, out);
  }
  const uint64_t runFrames = uint64_t(std::clamp(double(kMaxRunFrames) / s.step, 1.0, double(kMaxRunFrames)));
  for (uint64_t j = blockStart; j < end;) {
    const uint64_t start = uint64_t(double(j) * s.step);
    const uint64_t count = std::min(end - j, runFrames);
    s.interpolate(in + (start - before) * frameBytes, {double(j), s.step, double(start), uint32_t(count)},
                  out + (j - first) * frameBytes);
    j += count;
  }
  s.produced = end;
  return uint32_t(end - first);
}

// At the end of a stream of known length its last frame is put out as it is, if it is still or already at hand.
bool copyLastFrame(FreqChangeState &s, const uint8_t *in, uint32_t frames, uint8_t *out) {
  if (s.lastIndex == UINT64_MAX || double(s.produced) * s.step < double(s.lastIndex)) return false;
  const int64_t frameBytes = int64_t(s.channels * sizeof(int16_t));
  const int64_t at = (int64_t(s.lastIndex) - int64_t(s.consumed)) * frameBytes;
  if (at >= frames * frameBytes || at < -int64_t(sizeof s.history)) return false;
  std::memcpy(out, at >= 0 ? in + at : s.history + sizeof s.history + at, size_t(frameBytes));
  ++s.produced;
  return true;
}

void remember(FreqChangeState &s, const uint8_t *in, uint32_t frames) {
  constexpr size_t kKept = sizeof s.history;
  const size_t bytes = frames * (s.channels * sizeof(int16_t));
  const size_t fresh = std::min(bytes, kKept);
  std::memmove(s.history, s.history + fresh, kKept - fresh);
  std::memcpy(s.history + (kKept - fresh), in + (bytes - fresh), fresh);
  s.consumed += frames;
}

}  // namespace

uint32_t changeRate(FreqChangeState &s, const uint8_t *in, uint32_t frames, uint8_t *out) {
  if (frames == 0) return 0;
  uint32_t written = 0;
  const bool hasRates = s.step > 0.0 && s.step <= double(UINT32_MAX);
  if (hasRates) {
    written = interpolateBlock(s, in, frames, out);
    if (copyLastFrame(s, in, frames, out + written * (s.channels * sizeof(int16_t)))) ++written;
  }
  remember(s, in, frames);
  return written;
}

}  // namespace qav

extern "C" {

int32_t NEB_freqChangeInit(FreqChangeState **out, uint32_t inFreqHz, uint32_t outFreqHz, uint32_t channels,
                           uint32_t totalFrames) {
  *out = nullptr;
  auto *const s = static_cast<FreqChangeState *>(std::calloc(1, sizeof(FreqChangeState)));
  if (s == nullptr) return 1;
  s->step = double(inFreqHz) / double(outFreqHz);
  s->lastIndex = totalFrames == 0 ? UINT64_MAX : totalFrames - 1;
  s->channels = channels == 2 ? 2 : 1;
  s->interpolate = qav::interpolateFor(qav::detectCpuLevel(), s->channels);
  *out = s;
  return 0;
}

int32_t NEB_freqChange(FreqChangeState *s, const int16_t *in, uint32_t frames, int16_t *out, uint32_t *outFrames) {
  *outFrames = qav::changeRate(*s, reinterpret_cast<const uint8_t *>(in), frames, reinterpret_cast<uint8_t *>(out));
  return 0;
}

int32_t NEB_freqChangeTerm(FreqChangeState *s) {
  std::free(s);
  return 0;
}

}  // extern "C"
