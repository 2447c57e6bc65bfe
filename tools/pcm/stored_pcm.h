// Readers of samples that stand in a file as they are: bare ones, and those of a WAV file.
#pragma once

#include <memory>

#include "tools/io/byte_source.h"
#include "tools/io/byte_window.h"
#include "tools/pcm/pcm_reader.h"

namespace qav::tool {

class StoredPcm : public PcmReader {
 protected:
  explicit StoredPcm(std::unique_ptr<ByteSource> source, std::unique_ptr<ByteWindow> window)
      : source_(std::move(source)), window_(std::move(window)) {}

  void setSample(const SampleFormat &sample, unsigned channels);

  size_t readInt16(int16_t *to, size_t frames) final;
  size_t readDouble(double *to, size_t frames) final;

  // Bytes of samples that can be seen in the window, at least one sample frame; fewer only at their end.
  virtual size_t fillSamples() = 0;

  // Called once at the end of the samples, with the number of bytes left over that are no whole sample frame.
  virtual void endSamples(size_t strayBytes) = 0;

  std::unique_ptr<ByteSource> source_;
  std::unique_ptr<ByteWindow> window_;
  SampleFormat sample_;
  size_t frameBytes_ = 0;

 private:
  template <typename Sample>
  size_t readSamples(Sample *to, size_t frames,
                     void (*convert)(const SampleFormat &, const uint8_t *, Sample *, size_t));

  bool ended_ = false;
};

class RawReader final : public StoredPcm {
 public:
  RawReader(std::unique_ptr<ByteSource> source, const RawFormat &raw);

 protected:
  size_t fillSamples() override { return window_->fill(frameBytes_); }
  void endSamples(size_t strayBytes) override;
};

}  // namespace qav::tool
