#include "tools/wav_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "tools/little_endian.h"

namespace qav::tool {

namespace {

constexpr uint32_t kUnknownLength = 0xFFFFFFFF;
constexpr uint32_t kDs64Bytes = 28;  // RIFF size, data size, samples, and an empty table

}  // namespace

// Layout: "RIFF" size "WAVE" [ "JUNK" 28 ... ] "fmt " 16 ... "data" size
WavWriter::WavWriter(OutputFile &out, uint32_t freqHz, uint32_t channels, bool roomForRf64)
    : out_(out), roomForRf64_(roomForRf64 && out.canPatch()), headerBytes_(roomForRf64_ ? 80 : 44) {
  std::array<uint8_t, 80> header{};
  uint8_t *p = header.data();
  const auto tag = [&p](const char *id) {
    std::memcpy(p, id, 4);
    p += 4;
  };
  const auto number = [&p](uint32_t value, size_t bytes) {
    putLe(p, value, bytes);
    p += bytes;
  };
  tag("RIFF");
  number(kUnknownLength, 4);
  tag("WAVE");
  if (roomForRf64_) {
    tag("JUNK");
    number(kDs64Bytes, 4);
    p += kDs64Bytes;
  }
  tag("fmt ");
  number(16, 4);
  number(1, 2);  // PCM
  number(channels, 2);
  number(freqHz, 4);
  number(freqHz * channels * 2, 4);
  number(channels * 2, 2);
  number(16, 2);
  tag("data");
  number(kUnknownLength, 4);
  out_.write(header.data(), headerBytes_);
}

void WavWriter::write(const int16_t *samples, size_t count) {
  writeSamples(out_, samples, count);
  dataBytes_ += count * 2;
}

bool WavWriter::finish() {
  if (!out_.canPatch()) return true;
  const uint64_t riffBytes = headerBytes_ - 8 + dataBytes_;
  if (riffBytes < kUnknownLength) {
    uint8_t size[4];
    putLe(size, riffBytes, 4);
    out_.patch(4, size, 4);
    putLe(size, dataBytes_, 4);
    out_.patch(headerBytes_ - 4, size, 4);
    return true;
  }
  if (!roomForRf64_) return false;
  uint8_t ds64[8 + kDs64Bytes] = {'d', 's', '6', '4'};
  putLe(ds64 + 4, kDs64Bytes, 4);
  putLe(ds64 + 8, riffBytes, 8);
  putLe(ds64 + 16, dataBytes_, 8);
  out_.patch(0, "RF64", 4);
  out_.patch(12, ds64, sizeof ds64);
  return true;
}

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
