#include "stream/freq_change_kernels.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "base/attributes.h"

namespace qav {
namespace {

constexpr uint32_t kLanes = 64;  // output frames that go through the stages together

// Half away from zero. `value` lies within half a unit of the range of a sample, so nothing is clipped.
NEB_INLINE int32_t roundToSample(double value) { return int32_t(value + std::copysign(0.5, value)); }

// A sample frame as one word, so that lanes run across frames: the samples of a stereo frame are its two halves.
constexpr bool kLittle = std::endian::native == std::endian::little;

template <uint32_t Channels>
struct Word;

template <>
struct Word<1> {
  using Type = int16_t;
  static NEB_INLINE int32_t sample(Type word, uint32_t) { return word; }
  static NEB_INLINE Type join(int32_t only, int32_t) { return Type(only); }
};

template <>
struct Word<2> {
  using Type = uint32_t;
  static NEB_INLINE int32_t sample(Type word, uint32_t ch) {
    return (ch == 0) == kLittle ? int32_t(word << 16) >> 16 : int32_t(word) >> 16;
  }
  static NEB_INLINE Type join(int32_t left, int32_t right) {
    return kLittle ? uint32_t(left & 0xFFFF) | uint32_t(right) << 16 : uint32_t(right & 0xFFFF) | uint32_t(left) << 16;
  }
};

// Every loop but the second one runs over independent lanes and is vectorised.
template <uint32_t Channels>
NEB_INLINE void interpolateLanes(const uint8_t *in, const OutputRun &run, uint32_t done, uint32_t count, uint8_t *out) {
  const double first = run.first + double(done);
  using Frame = Word<Channels>;
  using FrameWord = typename Frame::Type;
  int32_t index[kLanes];
  double fraction[kLanes];
  FrameWord before[kLanes], after[kLanes], result[kLanes];

  for (uint32_t k = 0; k < count; ++k) {
    // The difference is exact: both are multiples of the same power of two, and it is the smaller.
    const double position = (first + double(int32_t(k))) * run.step - run.origin;
    index[k] = int32_t(position);
    fraction[k] = position - double(index[k]);
  }
  for (uint32_t k = 0; k < count; ++k) {
    const uint8_t *const frame = in + size_t(index[k]) * sizeof(FrameWord);
    std::memcpy(&before[k], frame, sizeof(FrameWord));
    std::memcpy(&after[k], frame + sizeof(FrameWord), sizeof(FrameWord));
  }
  for (uint32_t k = 0; k < count; ++k) {
    const double f = fraction[k], g = 1.0 - f;
    int32_t y[2] = {};
    for (uint32_t ch = 0; ch < Channels; ++ch)
      y[ch] = roundToSample(g * double(Frame::sample(before[k], ch)) + f * double(Frame::sample(after[k], ch)));
    result[k] = Frame::join(y[0], y[1]);
  }
  std::memcpy(out, result, count * sizeof(FrameWord));
}

template <uint32_t Channels>
NEB_INLINE void interpolateBody(const uint8_t *in, const OutputRun &run, uint8_t *out) {
  uint32_t done = 0;
  for (; run.count - done >= kLanes; done += kLanes)
    interpolateLanes<Channels>(in, run, done, kLanes, out + size_t(done) * Channels * sizeof(int16_t));
  interpolateLanes<Channels>(in, run, done, run.count - done, out + size_t(done) * Channels * sizeof(int16_t));
}

template <uint32_t Channels>
void interpolateBaseline(const uint8_t *in, const OutputRun &run, uint8_t *out) {
  interpolateBody<Channels>(in, run, out);
}

#ifdef NEB_TARGET
template <uint32_t Channels>
NEB_TARGET("avx2")
void interpolateAvx2(const uint8_t *in, const OutputRun &run, uint8_t *out) {
  interpolateBody<Channels>(in, run, out);
}

template <uint32_t Channels>
NEB_TARGET("avx512f,avx512bw,avx512dq,avx512vl")
void interpolateAvx512(const uint8_t *in, const OutputRun &run, uint8_t *out) {
  interpolateBody<Channels>(in, run, out);
}
#endif

}  // namespace

InterpolateFn interpolateFor(CpuLevel level, uint32_t channels) {
  const bool two = channels == 2;
#ifdef NEB_TARGET
  if (level == CpuLevel::Avx512) return two ? interpolateAvx512<2> : interpolateAvx512<1>;
  if (level == CpuLevel::Avx2) return two ? interpolateAvx2<2> : interpolateAvx2<1>;
#endif
  static_cast<void>(level);
  return two ? interpolateBaseline<2> : interpolateBaseline<1>;
}

}  // namespace qav
