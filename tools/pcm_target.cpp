#include "tools/pcm_target.h"

#include <bit>

#include "tools/little_endian.h"

namespace qav::tool {

namespace {

// From here on the header leaves room to become that of an RF64 file, in case the expectation is exceeded.
constexpr uint64_t kLargeBytes = uint64_t{1} << 30;

}  // namespace

void FileTarget::open(uint32_t freqHz, uint32_t channels) {
  channels_ = channels;
  out_.emplace(name_, options_.overwrite);
  if (!options_.raw) wav_.emplace(*out_, freqHz, channels, options_.expectedBytes.value_or(kLargeBytes) >= kLargeBytes);
}

void FileTarget::write(const int16_t *samples, size_t frames) {
  if (wav_)
    wav_->write(samples, frames * channels_);
  else
    writeSamples(*out_, samples, frames * channels_);
}

void FileTarget::close() {
  if (wav_ && !wav_->finish() && options_.warn)
    options_.warn("the output is longer than a WAV header can say; it states an unknown length");
  out_->commit();
  wav_.reset();
  out_.reset();
}

void Md5Target::write(const int16_t *samples, size_t frames) {
  const size_t count = frames * channels_;
  if constexpr (std::endian::native == std::endian::little) {
    md5_.add(samples, count * 2);
  } else {
    for (size_t i = 0; i < count; ++i) {
      uint8_t bytes[2];
      putLe(bytes, static_cast<uint16_t>(samples[i]), 2);
      md5_.add(bytes, 2);
    }
  }
}

}  // namespace qav::tool
