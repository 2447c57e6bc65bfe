#include "stream/freq_change.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/cpu.h"

namespace qav {
namespace {

// Positions in a block are 32-bit integers; longer blocks are taken in pieces.
constexpr uint32_t kMaxPieceFrames = 1u << 30;

// The first output frame, from `from` on, that lies at or behind input frame `position`.
uint64_t firstOutputAt(uint64_t position, double step, uint64_t from) {
  const double x = double(position);
  uint64_t j = std::max(from, uint64_t(x / step));
  while (j > from && double(j - 1) * step >= x) --j;
  while (double(j) * step < x) ++j;
  return j;
}

// The output frames that lie between two frames of the piece, or between the last frame before it and its first.
uint32_t interpolatePiece(FreqChangeState &s, const uint8_t *in, uint32_t frames, uint8_t *out) {
  if (!(s.step > 0.0 && s.step <= double(UINT32_MAX))) return 0;
  const size_t frameBytes = s.channels * sizeof(int16_t);
  const uint64_t before = s.consumed;
  const uint64_t limit = std::min(s.lastIndex, before + frames - 1);
  const uint64_t end = firstOutputAt(limit, s.step, s.produced);

  const uint64_t pieceStart = firstOutputAt(std::min(before, limit), s.step, s.produced);
  const uint32_t headFrames = uint32_t(pieceStart - s.produced);
  if (headFrames > 0) {
    uint8_t border[2 * 2 * sizeof(int16_t)];
    std::memcpy(border, s.history + sizeof s.history - frameBytes, frameBytes);
    std::memcpy(border + frameBytes, in, frameBytes);
    s.interpolate(border, {double(s.produced), s.step, double(before) - 1.0, headFrames}, out);
  }
  const uint32_t bodyFrames = uint32_t(end - pieceStart);
  if (bodyFrames > 0)
    s.interpolate(in, {double(pieceStart), s.step, double(before), bodyFrames}, out + headFrames * frameBytes);
  s.produced = end;
  return headFrames + bodyFrames;
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
  const size_t frameBytes = s.channels * sizeof(int16_t);
  uint32_t written = 0;
  bool ended = false;
  while (frames > 0) {
    const uint32_t piece = std::min(frames, kMaxPieceFrames);
    written += interpolatePiece(s, in, piece, out + written * frameBytes);
    if (!ended && copyLastFrame(s, in, piece, out + written * frameBytes)) {
      ended = true;
      ++written;
    }
    remember(s, in, piece);
    in += piece * frameBytes;
    frames -= piece;
  }
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
