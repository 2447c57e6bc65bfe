#include "tools/pcm/rate_converter.h"

#include <qav.h>
#include <soxr.h>

#include <algorithm>
#include <new>

#include "tools/io/failure.h"

namespace qav::tool {

namespace {

// Sample frames handed to a converter at once.
constexpr size_t kBlockFrames = 4096;

// The library's converter counts sample frames in 32 bits.
constexpr uint64_t kMostLinearFrames = 0xFFFF0000;

}  // namespace

const char *resamplerName(Resampler resampler) { return resampler == Resampler::soxr ? "soxr" : "linear"; }

uint64_t convertedFrames(uint64_t frames, uint32_t inFreqHz, uint32_t outFreqHz) {
  // In two parts, so that the product stays within 64 bits.
  const uint64_t seconds = frames / inFreqHz, rest = frames % inFreqHz;
  return seconds * outFreqHz + (rest * outFreqHz + inFreqHz / 2) / inFreqHz;
}

SoxrConverter::SoxrConverter(uint32_t inFreqHz, uint32_t outFreqHz, unsigned channels) : channels_(channels) {
  soxr_error_t error = nullptr;
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT64_I, SOXR_FLOAT64_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);  // the tool spreads files, not channels, over threads
  soxr_ = soxr_create(inFreqHz, outFreqHz, channels, &error, &io, &quality, &runtime);
  if (error) throw std::bad_alloc();
}

SoxrConverter::~SoxrConverter() { soxr_delete(soxr_); }

void SoxrConverter::process(const double *in, size_t frames, std::vector<double> &out) {
  size_t taken = 0;
  for (;;) {
    const size_t before = out.size();
    out.resize(before + kBlockFrames * channels_);
    size_t used = 0, made = 0;
    if (soxr_process(soxr_, in ? in + taken * channels_ : nullptr, frames - taken, &used, out.data() + before,
                     kBlockFrames, &made))
      throw std::bad_alloc();
    out.resize(before + made * channels_);
    taken += used;
    if (made < kBlockFrames && taken == frames) return;
  }
}

void SoxrConverter::convert(const double *in, size_t frames, std::vector<double> &out) {
  if (frames > 0) process(in, frames, out);
}

void SoxrConverter::flush(std::vector<double> &out) { process(nullptr, 0, out); }

LinearConverter::LinearConverter(uint32_t inFreqHz, uint32_t outFreqHz, unsigned channels)
    : inFreqHz_(inFreqHz), outFreqHz_(outFreqHz), channels_(channels) {
  if (NEB_freqChangeInit(&state_, inFreqHz, outFreqHz, channels, 0) != 0) throw std::bad_alloc();
}

LinearConverter::~LinearConverter() { NEB_freqChangeTerm(state_); }

void LinearConverter::process(const int16_t *in, size_t frames, std::vector<int16_t> &out) {
  while (frames > 0) {
    const size_t n = std::min(frames, kBlockFrames);
    const size_t before = out.size();
    const auto room = static_cast<size_t>(uint64_t{n} * outFreqHz_ / inFreqHz_ + 2);
    out.resize(before + room * channels_);
    uint32_t made = 0;
    NEB_freqChange(state_, in, static_cast<uint32_t>(n), out.data() + before, &made);
    out.resize(before + made * channels_);
    produced_ += made;
    in += n * channels_;
    frames -= n;
  }
}

void LinearConverter::convert(const int16_t *in, size_t frames, std::vector<int16_t> &out) {
  if (frames == 0) return;
  consumed_ += frames;
  if (consumed_ > kMostLinearFrames || convertedFrames(consumed_, inFreqHz_, outFreqHz_) > kMostLinearFrames)
    fail("is too long for the linear resampler", "use --resampler soxr");
  process(in, frames, out);
  std::copy_n(in + (frames - 1) * channels_, channels_, last_);
}

// The last sample frame goes on until the output is long enough.
void LinearConverter::flush(std::vector<int16_t> &out) {
  const uint64_t wanted = convertedFrames(consumed_, inFreqHz_, outFreqHz_);
  for (int i = 0; i < 2 && produced_ < wanted; ++i) process(last_, 1, out);
  if (produced_ > wanted) out.resize(out.size() - static_cast<size_t>(produced_ - wanted) * channels_);
}

}  // namespace qav::tool
