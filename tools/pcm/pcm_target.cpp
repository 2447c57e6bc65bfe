#include "tools/pcm/pcm_target.h"

#include <qav.h>

#include <bit>

#include "tools/io/little_endian.h"

namespace qav::tool {

void FileTarget::open(uint32_t freqHz, uint32_t channels) {
  channels_ = channels;
  out_.emplace(name_, options_.overwrite);
  if (!options_.raw)
    wav_.emplace(*out_, freqHz, channels,
                 WavWriter::Options{.expectedBytes = options_.expectedBytes, .chunks = options_.chunks});
}

void FileTarget::write(const int16_t *samples, size_t frames) {
  if (wav_)
    wav_->write(samples, frames * channels_);
  else
    writeSamples(*out_, samples, frames * channels_);
}

static_assert(OutputFile::kRoomBytes >= QAV_MAX_FRAME_PCM_BYTES);

int16_t *FileTarget::next() {
  if (std::endian::native != std::endian::little || !out_ || out_->size() % sizeof(int16_t) != 0) return nullptr;
  return reinterpret_cast<int16_t *>(out_->next());
}

void FileTarget::close() {
  const std::string remark = wav_ ? wav_->finish(withChunksBehind_) : std::string();
  if (!remark.empty() && options_.warn) options_.warn(remark);
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
