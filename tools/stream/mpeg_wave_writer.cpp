#include "tools/stream/mpeg_wave_writer.h"

#include <algorithm>
#include <array>

#include "tools/io/failure.h"
#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

// A fact chunk holds 32 bits; this is its "not known", and for a longer file the ds64 chunk has the number.
constexpr uint32_t kUnknownSamples = 0xFFFFFFFF;

std::array<uint8_t, 4> factContent(std::optional<uint64_t> samples) {
  std::array<uint8_t, 4> content;
  putLe(content.data(), std::min<uint64_t>(samples.value_or(kUnknownSamples), kUnknownSamples), 4);
  return content;
}

}  // namespace

MpegWaveWriter::MpegWaveWriter(OutputFile &out, const Options &options) : out_(out), options_(options) {
  if (!options.bextLoudness) return;
  if (!out.canPatch()) fail("the loudness cannot be filled in on a pipe", "write to a file with -o");
  const auto &bext = options.chunks ? options.chunks->bext() : std::nullopt;
  if (bext && bext->bytes < kBextBytes) fail("has a bext chunk too short to hold the loudness", "leave that out");
}

void MpegWaveWriter::write(const uint8_t *frame, const FrameHeader &header) {
  format_.add(header);
  if (!riff_) writeHead();
  out_.write(frame, header.frameBytes);
}

void MpegWaveWriter::writeHead() {
  riff_.emplace(out_, options_.chunks, options_.expectedBytes);
  const auto format = format_.content();
  formatOffset_ = riff_->chunk("fmt ", format.data(), format.size());
  const auto fact = factContent(options_.samples);
  factOffset_ = riff_->chunk("fact", fact.data(), fact.size());
  const bool hasBext = options_.chunks && options_.chunks->bext();
  const std::array<uint8_t, kBextBytes> emptyBext{};
  if (options_.bextLoudness && !hasBext) bextOffset_ = riff_->chunk("bext", emptyBext.data(), emptyBext.size());
  const uint64_t chunksOffset = riff_->beginData();
  if (hasBext) bextOffset_ = chunksOffset + options_.chunks->bext()->offset;
}

std::string MpegWaveWriter::finish(uint64_t samples, const Loudness *loudness) {
  std::string remark = riff_->finish(samples);
  if (!out_.canPatch()) return remark;
  const auto format = format_.content();
  out_.patch(formatOffset_, format.data(), format.size());
  const auto fact = factContent(samples);
  out_.patch(factOffset_, fact.data(), fact.size());
  if (loudness) patchBextLoudness(out_, bextOffset_, *loudness);
  return remark;
}

}  // namespace qav::tool
