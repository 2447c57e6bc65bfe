#include "tools/pcm/pcm_reader.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "tools/io/byte_source.h"
#include "tools/io/byte_window.h"
#include "tools/io/message.h"
#include "tools/pcm/sndfile_reader.h"
#include "tools/pcm/stored_pcm.h"
#include "tools/pcm/wav_reader.h"
#include "tools/riff/riff.h"

namespace qav::tool {

namespace {

bool beginsWith(const ByteWindow &window, std::string_view magic, size_t at = 0) {
  return window.visible() >= at + magic.size() &&
         std::string_view(reinterpret_cast<const char *>(window.data()) + at, magic.size()) == magic;
}

bool isWave(const ByteWindow &window) {
  return (beginsWith(window, "RIFF") || beginsWith(window, "RF64") || beginsWith(window, "BW64")) &&
         beginsWith(window, "WAVE", 8);
}

bool isMpegSync(const ByteWindow &window, size_t at) {
  return window.visible() >= at + 2 && window.data()[at] == 0xFF && (window.data()[at + 1] & 0xE0) == 0xE0;
}

// An ID3v2 tag's length is four times seven bits, and does not count its own header.
size_t id3Bytes(const ByteWindow &window) {
  if (!beginsWith(window, "ID3") || window.visible() < 10) return 0;
  size_t bytes = 0;
  for (size_t i = 6; i < 10; ++i) bytes = bytes << 7 | (window.data()[i] & 0x7F);
  return 10 + bytes;
}

bool isMpegAudio(ByteWindow &window) {
  const size_t tag = id3Bytes(window);
  if (tag == 0) return isMpegSync(window, 0);
  // Behind a tag of more than a picture's size it is an MPEG stream as good as always.
  constexpr size_t kLookedThrough = size_t{256} * 1024;
  if (tag > kLookedThrough) return true;
  window.fill(tag + 4);
  return isMpegSync(window, tag);
}

void checkFormat(const PcmFormat &format) {
  if (format.channels > 2)
    fail(fmt::format("has {} channels, Layer II takes 1 or 2", format.channels),
         "mix it down to 1 or 2 channels first");
  if (format.channels == 0) fail("has no channels", "check the file");
  if (format.freqHz < kLowestFreqHz || format.freqHz > kHighestFreqHz)
    fail(fmt::format("has a sampling rate of {} Hz, {} to {} Hz are taken", format.freqHz, kLowestFreqHz,
                     kHighestFreqHz),
         "check the file");
}

std::unique_ptr<PcmReader> openAny(const std::string &name, const std::optional<RawFormat> &raw, KeptChunks *keep) {
  auto source = std::make_unique<FileSource>(name);
  const bool seekable = name != "-" && source->size().has_value();
  if (raw) return std::make_unique<RawReader>(std::move(source), *raw);

  auto window = std::make_unique<ByteWindow>(*source);
  if (window->fill(12) == 0) fail("is empty", "check the file");
  if (isWave(*window)) {
    auto wav = std::make_unique<WavReader>(std::move(source), std::move(window), keep);
    if (wav->isPlainPcm()) return wav;
    if (!seekable) fail("holds compressed WAV samples, which are not taken from a pipe", "save it to a file first");
    if (keep) {
      keep->clear();
      FileSource again(name);
      keepChunks(again, *keep);
    }
    return std::make_unique<SndfileReader>(name);
  }
  if (isMpegAudio(*window)) failIsMpegAudio();
  if (seekable) return std::make_unique<SndfileReader>(name);
  return std::make_unique<SndfileReader>(*window);
}

}  // namespace

size_t PcmReader::read(double *to, size_t frames) {
  const size_t n = readDouble(to, frames);
  if (format_.floating) {
    for (size_t i = 0; i < n * format_.channels; ++i) {
      if (std::isfinite(to[i])) continue;
      to[i] = 0.0;
      ++notNumbers_;
    }
  }
  return n;
}

void PcmReader::remark(bool damage, std::string what, std::string remedy) {
  remarks_.push_back({{{}, std::move(what), std::move(remedy)}, damage});
}

std::vector<Remark> PcmReader::remarks() const {
  std::vector<Remark> all = remarks_;
  if (notNumbers_ > 0)
    all.push_back({{{},
                    fmt::format("{} {} no number (infinite or NaN) and became silence", counted(notNumbers_, "sample"),
                                notNumbers_ == 1 ? "was" : "were"),
                    "check how the file was made"},
                   true});
  return all;
}

void failIsMpegAudio() { fail("is MPEG audio already", "decode it with 'qav decode' first"); }

RawFormat parseRawFormat(const std::string &text) {
  const auto refuse = [&](const std::string &what) {
    failUsage(fmt::format("--raw {}: {}", displayName(text), what),
              "write FORMAT,RATE,CHANNELS as in s16le,44100,2; formats: " + rawFormatNames());
  };
  const auto number = [&](std::string_view part) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), value);
    if (error != std::errc{} || end != part.data() + part.size()) refuse("no number: " + displayName(part));
    return value;
  };
  const std::string_view all = text;
  const size_t first = all.find(','), second = all.find(',', first == all.npos ? first : first + 1);
  if (second == all.npos) refuse("three parts are wanted");
  const std::optional<SampleFormat> sample = rawFormatNamed(all.substr(0, first));
  if (!sample) refuse("there is no such format");
  const RawFormat raw{*sample, number(all.substr(first + 1, second - first - 1)), number(all.substr(second + 1))};
  if (raw.freqHz < kLowestFreqHz || raw.freqHz > kHighestFreqHz)
    refuse(fmt::format("the rate must be {} to {} Hz", kLowestFreqHz, kHighestFreqHz));
  if (raw.channels < 1 || raw.channels > 2) refuse("there must be 1 or 2 channels");
  return raw;
}

std::unique_ptr<PcmReader> openPcm(const std::string &name, const std::optional<RawFormat> &raw, KeptChunks *keep) {
  std::unique_ptr<PcmReader> reader = openAny(name, raw, keep);
  checkFormat(reader->format());
  return reader;
}

}  // namespace qav::tool
