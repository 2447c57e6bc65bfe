// Every other file of PCM, by libsndfile: AIFF, FLAC, W64, CAF, AU, compressed WAV...
#pragma once

#include <sndfile.h>

#include <cstdio>
#include <memory>
#include <string>

#include "tools/io/byte_window.h"
#include "tools/pcm/pcm_reader.h"

namespace qav::tool {

class SndfileReader final : public PcmReader {
 public:
  explicit SndfileReader(const std::string &path);

  // What is in the window and behind it. libsndfile seeks, so a pipe is read to its end into a temporary file.
  explicit SndfileReader(ByteWindow &window);

 protected:
  size_t readInt16(int16_t *to, size_t frames) override;
  size_t readDouble(double *to, size_t frames) override;

 private:
  struct Close {
    void operator()(SNDFILE *file) const { sf_close(file); }
    void operator()(std::FILE *file) const { std::fclose(file); }
  };

  void open(int fd);
  size_t took(sf_count_t got, size_t wanted);

  std::unique_ptr<std::FILE, Close> stored_;
  std::unique_ptr<SNDFILE, Close> file_;
  uint64_t done_ = 0;
  bool ended_ = false;
};

}  // namespace qav::tool
