// The tool's own readers of PCM, WAV files and bare samples, on any bytes: the same samples however the input is cut,
// none but those that can be there, values in range, and a failure with a message at worst.
#include "tools/pcm/pcm_reader.h"

#include <cmath>
#include <string>

#include "fuzz/fuzz.h"
#include "fuzz/memory_source.h"
#include "tools/pcm/sample_format.h"
#include "tools/pcm/stored_pcm.h"
#include "tools/pcm/wav_reader.h"

using namespace qav::fuzz;
using namespace qav::tool;

namespace {

struct Reading {
  std::string failure;
  std::vector<double> samples;
  std::vector<std::string> remarks;
  bool operator==(const Reading &) const = default;
};

Reading readAll(const Bytes &input, const Bytes &cuts, const std::optional<RawFormat> &raw) {
  Reading result;
  KeptChunks kept;
  try {
    auto source = std::make_unique<MemorySource>(input, cuts, false);
    std::unique_ptr<PcmReader> reader;
    if (raw) {
      reader = std::make_unique<RawReader>(std::move(source), *raw);
    } else {
      auto window = std::make_unique<ByteWindow>(*source);
      if (window->fill(12) < 12) return result;
      auto wav = std::make_unique<WavReader>(std::move(source), std::move(window), &kept);
      if (!wav->isPlainPcm()) return result;
      reader = std::move(wav);
    }
    const PcmFormat &format = reader->format();
    if (format.channels < 1 || format.channels > 2) return result;
    size_t n = 0;
    do {
      constexpr size_t kFrames = 333;
      const size_t before = result.samples.size();
      if (format.fits16) {
        Block<int16_t> block(kFrames * format.channels);
        n = reader->read(block.data(), kFrames);
        for (size_t i = 0; i < n * format.channels; ++i) result.samples.push_back(block.data()[i]);
      } else {
        Block<double> block(kFrames * format.channels);
        n = reader->read(block.data(), kFrames);
        for (size_t i = 0; i < n * format.channels; ++i) result.samples.push_back(block.data()[i]);
      }
      FUZZ_CHECK(n <= kFrames && result.samples.size() == before + n * format.channels);
      FUZZ_CHECK(result.samples.size() <= input.size());  // a sample takes a byte at least
    } while (n > 0);
    for (const double v : result.samples) FUZZ_CHECK(std::isfinite(v));
    if (!format.floating && !format.fits16)
      for (const double v : result.samples) FUZZ_CHECK(v >= -1.0 && v <= 1.0);
    for (const Remark &remark : reader->remarks()) result.remarks.push_back(remark.complaint.what);
  } catch (const Failure &failure) {
    result.failure = failure.complaint.what;
    FUZZ_CHECK(!result.failure.empty() && failure.status == kUnusable);
  }
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const char *const kNames[] = {"s8",    "u8",    "s16le", "s16be", "s24le",
                                       "s24be", "s32le", "s32be", "f32le", "f32be"};
  Input in(data, size);
  const uint8_t kind = in.byte();
  std::optional<RawFormat> raw;
  if (kind & 1) {
    const std::optional<SampleFormat> sample = rawFormatNamed(in.pick(kNames));
    FUZZ_CHECK(sample.has_value());
    raw = RawFormat{*sample, 44100, 1u + (kind >> 1 & 1)};
  }
  const Bytes cuts = in.bytes(1 + in.byte() % 8);
  const Bytes input = in.rest();
  FUZZ_CHECK(readAll(input, {}, raw) == readAll(input, cuts.empty() ? Bytes{0} : cuts, raw));
  return 0;
}
