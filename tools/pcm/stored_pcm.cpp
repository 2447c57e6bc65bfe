#include "tools/pcm/stored_pcm.h"

#include <algorithm>

#include "tools/io/message.h"

namespace qav::tool {

void StoredPcm::setSample(const SampleFormat &sample, unsigned channels) {
  sample_ = sample;
  frameBytes_ = size_t{sample.bytes} * channels;
  format_.channels = channels;
  format_.bits = 8 * sample.bytes;
  format_.floating = sample.kind == SampleKind::floating;
  format_.fits16 = sample.fits16();
}

template <typename Sample>
size_t StoredPcm::readSamples(Sample *to, size_t frames,
                              void (*convert)(const SampleFormat &, const uint8_t *, Sample *, size_t)) {
  size_t done = 0;
  while (done < frames && !ended_) {
    const size_t bytes = fillSamples();
    const size_t n = std::min(frames - done, bytes / frameBytes_);
    if (n == 0) {
      ended_ = true;
      endSamples(bytes);
      break;
    }
    convert(sample_, window_->data(), to + done * format_.channels, n * format_.channels);
    window_->consume(n * frameBytes_);
    done += n;
  }
  return done;
}

size_t StoredPcm::readInt16(int16_t *to, size_t frames) { return readSamples(to, frames, toInt16); }

size_t StoredPcm::readDouble(double *to, size_t frames) { return readSamples(to, frames, toDouble); }

RawReader::RawReader(std::unique_ptr<ByteSource> source, const RawFormat &raw) : StoredPcm(std::move(source), nullptr) {
  window_ = std::make_unique<ByteWindow>(*source_);
  setSample(raw.sample, raw.channels);
  format_.freqHz = raw.freqHz;
  format_.container = "raw";
  if (source_->size()) format_.frames = *source_->size() / frameBytes_;
}

void RawReader::endSamples(size_t strayBytes) {
  if (strayBytes > 0)
    remark(true, "ends with " + counted(strayBytes, "byte") + " that are no whole sample frame",
           "check the format given with --raw");
}

}  // namespace qav::tool
