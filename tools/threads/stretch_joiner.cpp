#include "tools/threads/stretch_joiner.h"

#include <soxr.h>

#include <algorithm>
#include <array>

#include "tools/io/failure.h"

namespace qav::tool {

namespace {

// Stereo is averaged, mono is spread.
void mix(const int16_t *from, size_t frames, uint32_t fromChannels, std::vector<int16_t> &to) {
  to.resize(fromChannels == 1 ? frames * 2 : frames);
  for (size_t i = 0; i < frames; ++i) {
    if (fromChannels == 1)
      to[2 * i] = to[2 * i + 1] = from[i];
    else
      to[i] = static_cast<int16_t>((from[2 * i] + from[2 * i + 1]) / 2);
  }
}

}  // namespace

StretchJoiner::~StretchJoiner() { soxr_delete(resampler_); }

void StretchJoiner::begin(uint32_t freqHz, uint32_t channels) {
  if (freqHz_ == 0) {
    freqHz_ = freqHz;
    channels_ = channels;
    target_.open(freqHz, channels);
  } else {
    endStretch();
  }
  stretchFreqHz_ = freqHz;
  stretchChannels_ = channels;
  if (freqHz == freqHz_) return;
  soxr_io_spec_t samples = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
  samples.flags = SOXR_NO_DITHER;  // its noise would be another one in every run
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
  soxr_error_t error = nullptr;
  resampler_ = soxr_create(freqHz, freqHz_, channels_, &error, &samples, &quality, nullptr);
  if (error) fail(std::string("the rate cannot be converted: ") + error, "write one file a stretch with --split");
}

void StretchJoiner::write(const int16_t *samples, size_t frames) {
  if (stretchChannels_ != channels_) {
    mix(samples, frames, stretchChannels_, mixed_);
    samples = mixed_.data();
  }
  if (resampler_)
    resample(samples, frames);
  else
    target_.write(samples, frames);
}

int16_t *StretchJoiner::next() {
  return freqHz_ != 0 && !resampler_ && stretchChannels_ == channels_ ? target_.next() : nullptr;
}

void StretchJoiner::silence(uint64_t frames) {
  static constexpr std::array<int16_t, 2 * 1152> kSilence{};
  while (frames > 0) {
    const size_t n = static_cast<size_t>(std::min<uint64_t>(frames, 1152));
    write(kSilence.data(), n);
    frames -= n;
  }
}

// Null samples drain what the resampler still holds.
void StretchJoiner::resample(const int16_t *samples, size_t frames) {
  resampled_.resize(size_t{8192} * channels_);
  for (size_t room = 8192, done = room; done == room || frames > 0;) {
    size_t used = 0;
    soxr_process(resampler_, samples, frames, &used, resampled_.data(), room, &done);
    target_.write(resampled_.data(), done);
    if (samples) samples += used * channels_;
    frames -= used;
  }
}

void StretchJoiner::endStretch() {
  if (!resampler_) return;
  resample(nullptr, 0);
  soxr_delete(resampler_);
  resampler_ = nullptr;
}

void StretchJoiner::finish() {
  if (freqHz_ == 0) return;
  endStretch();
  target_.close();
}

}  // namespace qav::tool
