// WAV, RF64 and BW64 files, read from front to back: from a file or a pipe, with a header that may lie.
//
// libsndfile is not used for these: it needs a file that it can seek in and trusts the lengths in the header, which are
// unknown to whoever writes to a pipe, and false where a recording was cut off or grew beyond 4 GiB.
#pragma once

#include "tools/pcm/stored_pcm.h"
#include "tools/riff/kept_chunks.h"

namespace qav::tool {

class WavReader final : public StoredPcm {
 public:
  // `window` shows the start of the source. `keep`, where given, takes the chunks around the samples: those behind
  // them when all samples have been read. Throws Failure.
  WavReader(std::unique_ptr<ByteSource> source, std::unique_ptr<ByteWindow> window, KeptChunks *keep = nullptr);

  // Whether the samples are integers or floating numbers; else this reader is of no use.
  bool isPlainPcm() const { return frameBytes_ > 0; }

 protected:
  size_t fillSamples() override;
  void endSamples(size_t strayBytes) override;

 private:
  void readHeader();
  void readFormatChunk(uint64_t bytes);
  void beginSamples(uint64_t riffBytes, uint64_t dataBytes);
  bool endsAsPromised(size_t held);
  bool isChunkAt(size_t at) const;
  void passTrailingChunks();

  KeptChunks *keep_;
  uint64_t dataStart_ = 0;
  uint64_t promised_ = 0;    // bytes of samples by the header
  uint64_t end_ = 0;         // of the samples
  bool unknown_ = false;     // the header gives no length, or a false one: the samples go on to the end of the input
  bool tooShort_ = false;    // ... because more samples follow than it says
  bool consistent_ = false;  // the header's two lengths agree
  bool formatRead_ = false;
};

}  // namespace qav::tool
