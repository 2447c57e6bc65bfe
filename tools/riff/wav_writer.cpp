#include "tools/riff/wav_writer.h"

#include <algorithm>
#include <array>
#include <bit>

#include "tools/io/little_endian.h"
#include "tools/riff/riff.h"

namespace qav::tool {

WavWriter::WavWriter(OutputFile &out, uint32_t freqHz, uint32_t channels, const Options &options)
    : out_(out), channels_(channels), riff_(out, options.chunks, options.expectedBytes) {
  uint8_t format[16];
  uint8_t *to = format;
  const auto put = [&to](uint32_t value, size_t bytes) {
    putLe(to, value, bytes);
    to += bytes;
  };
  put(kFormatPcm, 2);
  put(channels, 2);
  put(freqHz, 4);
  put(freqHz * channels * 2, 4);
  put(channels * 2, 2);
  put(16, 2);
  riff_.chunk("fmt ", format, sizeof format);
  riff_.beginData();
}

void WavWriter::write(const int16_t *samples, size_t count) {
  writeSamples(out_, samples, count);
  count_ += count;
}

std::string WavWriter::finish(bool withChunksBehind) { return riff_.finish(count_ / channels_, withChunksBehind); }

void writeSamples(OutputFile &out, const int16_t *samples, size_t count) {
  if constexpr (std::endian::native == std::endian::little) {
    out.write(samples, count * 2);
  } else {
    std::array<uint8_t, 4096> bytes;
    while (count > 0) {
      const size_t n = std::min(count, bytes.size() / 2);
      for (size_t i = 0; i < n; ++i) putLe(&bytes[2 * i], static_cast<uint16_t>(samples[i]), 2);
      out.write(bytes.data(), 2 * n);
      samples += n;
      count -= n;
    }
  }
}

}  // namespace qav::tool
