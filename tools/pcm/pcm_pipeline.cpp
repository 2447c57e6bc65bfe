#include "tools/pcm/pcm_pipeline.h"

#include <algorithm>
#include <cmath>

namespace qav::tool {

PcmPipeline::PcmPipeline(PcmReader &reader, const PcmSettings &settings, LoudnessMeter *meter)
    : reader_(reader),
      settings_(settings),
      meter_(meter),
      inChannels_(reader.format().channels),
      factor_(std::pow(10.0, settings.gainDb / 20.0)),
      quantiser_(settings.channels, settings.dither) {
  const PcmFormat &in = reader.format();
  if (settings.lowpassLevel > 0 && in.bits == 8) filter_.emplace(in.freqHz, inChannels_, settings.lowpassLevel);
  if (convertsRate()) {
    if (settings.resampler == Resampler::soxr)
      soxr_.emplace(in.freqHz, settings.freqHz, settings.channels);
    else
      linear_.emplace(in.freqHz, settings.freqHz, settings.channels);
  }
  const bool averages = inChannels_ > settings.channels;
  isExact_ = in.fits16 && !averages && !soxr_ && settings.gainDb == 0.0;
  isUntouched_ = isExact_ && inChannels_ == settings.channels && !filter_ && !linear_ && !meter_;
  read16_.resize(in.fits16 ? kBlockFrames * inChannels_ : 0);
  readDouble_.reserve(kBlockFrames * 2);
}

size_t PcmPipeline::read(int16_t *to, size_t frames) {
  if (isUntouched_) {
    const size_t n = reader_.read(to, frames);
    inputFrames_ += n;
    return n;
  }
  const size_t wanted = frames * settings_.channels;
  size_t done = 0;
  while (done < wanted) {
    if (taken_ == ready_.size()) {
      ready_.clear();
      taken_ = 0;
      if (ended_) break;
      fill();
    }
    const size_t n = std::min(wanted - done, ready_.size() - taken_);
    std::copy_n(ready_.begin() + static_cast<std::ptrdiff_t>(taken_), n, to + done);
    taken_ += n;
    done += n;
  }
  return done / settings_.channels;
}

void PcmPipeline::fill() {
  size_t frames = 0;
  if (reader_.format().fits16) {
    frames = reader_.read(read16_.data(), kBlockFrames);
    if (filter_) {
      filtered_.clear();
      filter_->filter(read16_.data(), frames, filtered_);
      if (frames < kBlockFrames) filter_->flush(filtered_);
      takeExact(filtered_.data(), filtered_.size() / inChannels_);
    } else {
      takeExact(read16_.data(), frames);
    }
  } else {
    readDouble_.resize(kBlockFrames * std::max(inChannels_, settings_.channels));
    frames = reader_.read(readDouble_.data(), kBlockFrames);
    takeDouble(frames);
  }
  inputFrames_ += frames;
  if (frames < kBlockFrames) end();
}

void PcmPipeline::takeExact(const int16_t *samples, size_t frames) {
  if (!isExact_) {
    readDouble_.resize(frames * std::max(inChannels_, settings_.channels));
    for (size_t i = 0; i < frames * inChannels_; ++i) readDouble_[i] = samples[i] * 0x1p-15;
    takeDouble(frames);
  } else if (inChannels_ < settings_.channels) {
    mapped16_.resize(frames * 2);
    for (size_t i = 0; i < frames; ++i) mapped16_[2 * i] = mapped16_[2 * i + 1] = samples[i];
    convertExact(mapped16_.data(), frames);
  } else {
    convertExact(samples, frames);
  }
}

// The block in readDouble_, which has room for two channels where there shall be two.
void PcmPipeline::takeDouble(size_t frames) {
  std::vector<double> &samples = readDouble_;
  if (inChannels_ < settings_.channels) {
    for (size_t i = frames; i-- > 0;) samples[2 * i] = samples[2 * i + 1] = samples[i];
  } else if (inChannels_ > settings_.channels) {
    for (size_t i = 0; i < frames; ++i) samples[i] = (samples[2 * i] + samples[2 * i + 1]) * 0.5;
  }
  samples.resize(frames * settings_.channels);
  if (settings_.gainDb != 0.0)
    for (double &sample : samples) sample *= factor_;
  if (soxr_) {
    converted_.clear();
    soxr_->convert(samples.data(), frames, converted_);
    roundAndConvert(converted_);
  } else {
    roundAndConvert(samples);
  }
}

void PcmPipeline::roundAndConvert(const std::vector<double> &samples) {
  const size_t frames = samples.size() / settings_.channels;
  if (meter_ && !linear_) meter_->add(samples.data(), frames);
  rounded_.resize(samples.size());
  quantiser_.quantise(samples.data(), rounded_.data(), frames);
  if (linear_)
    convertExact(rounded_.data(), frames);
  else
    ready_.insert(ready_.end(), rounded_.begin(), rounded_.end());
}

void PcmPipeline::convertExact(const int16_t *samples, size_t frames) {
  const size_t before = ready_.size();
  if (linear_)
    linear_->convert(samples, frames, ready_);
  else
    ready_.insert(ready_.end(), samples, samples + frames * settings_.channels);
  if (meter_) meter_->add(ready_.data() + before, (ready_.size() - before) / settings_.channels);
}

void PcmPipeline::end() {
  ended_ = true;
  if (soxr_) {
    converted_.clear();
    soxr_->flush(converted_);
    roundAndConvert(converted_);
  }
  if (linear_) {
    const size_t before = ready_.size();
    linear_->flush(ready_);
    if (meter_) meter_->add(ready_.data() + before, (ready_.size() - before) / settings_.channels);
  }
}

}  // namespace qav::tool
