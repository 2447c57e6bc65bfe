#include "tools/pcm/wav_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>

#include "tools/io/little_endian.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

// Format tags.
constexpr unsigned kPcm = 1, kFloat = 3, kMpeg = 0x50, kMpegLayer3 = 0x55, kExtensible = 0xFFFE;

// Lengths from here on stand for "not known" where the file ends before: 0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, and these
// less a header and rounded down to blocks, are all in use.
constexpr uint64_t kUnknownFrom = 0x7FFF0000;

constexpr uint64_t kFourGiB = uint64_t{1} << 32;

}  // namespace

WavReader::WavReader(std::unique_ptr<ByteSource> source, std::unique_ptr<ByteWindow> window, KeptChunks *keep)
    : StoredPcm(std::move(source), std::move(window)), keep_(keep) {
  readHeader();
}

void WavReader::readHeader() {
  window_->fill(12);
  const bool wide = std::memcmp(window_->data(), "RIFF", 4) != 0;
  format_.container = !wide ? "WAV" : window_->data()[0] == 'R' ? "RF64" : "BW64";
  uint64_t riffBytes = getLe32(window_->data() + 4);
  std::optional<uint64_t> wideData;
  window_->consume(12);
  for (;;) {
    if (window_->fill(8) < 8) fail("is a WAV file that ends before its samples", "it is cut off; make it anew");
    const uint8_t *const header = window_->data();
    uint64_t bytes = getLe32(header + 4);
    if (std::memcmp(header, "data", 4) == 0) {
      window_->consume(8);
      if (wideData && bytes == 0xFFFFFFFF) bytes = *wideData;
      beginSamples(riffBytes, bytes);
      return;
    }
    const bool isFormat = std::memcmp(header, "fmt ", 4) == 0;
    const bool isWide = wide && std::memcmp(header, "ds64", 4) == 0;
    if (!isFormat && !isWide) {
      passChunk(*window_, keep_, KeptChunks::Side::beforeData);
      continue;
    }
    window_->consume(8);
    const uint64_t next = window_->offset() + bytes + bytes % 2;
    if (isFormat) {
      readFormatChunk(bytes);
      if (!isPlainPcm()) return;
    }
    if (isWide && bytes >= 16 && window_->fill(16) >= 16) {
      riffBytes = getLe64(window_->data());
      wideData = getLe64(window_->data() + 8);
    }
    window_->skip(next - window_->offset());
  }
}

void WavReader::readFormatChunk(uint64_t bytes) {
  const size_t n = window_->fill(static_cast<size_t>(std::min<uint64_t>(bytes, 40)));
  if (bytes < 16 || n < 16) fail("is a WAV file with a broken format chunk", "check how it was made");
  const uint8_t *const p = window_->data();
  unsigned tag = getLe16(p);
  const unsigned channels = getLe16(p + 2), blockBytes = getLe16(p + 12), bits = getLe16(p + 14);
  format_.freqHz = getLe32(p + 4);
  if (tag == kExtensible && bytes >= 26 && n >= 26) tag = getLe16(p + 24);
  formatRead_ = true;
  if (tag == kMpeg || tag == kMpegLayer3) failIsMpegAudio();
  if (tag != kPcm && tag != kFloat) return;

  // A sample fills whole bytes, its bits at the top; the block tells of a wider container.
  const unsigned sampleBytes = channels > 0 && blockBytes % channels == 0 && blockBytes / channels * 8 >= bits
                                   ? blockBytes / channels
                                   : (bits + 7) / 8;
  const bool known =
      tag == kFloat ? sampleBytes == 4 || sampleBytes == 8 : (sampleBytes >= 1 && sampleBytes <= 4) || sampleBytes == 8;
  if (!known) fail(fmt::format("holds samples of {} bits, which are not known", bits), "convert it first");
  if (channels == 0) fail("has no channels", "check the file");
  const SampleKind kind = tag == kFloat      ? SampleKind::floating
                          : sampleBytes == 1 ? SampleKind::unsignedInteger
                                             : SampleKind::signedInteger;
  setSample({kind, sampleBytes, false}, channels);
  if (bits > 0) format_.bits = bits;
}

void WavReader::beginSamples(uint64_t riffBytes, uint64_t dataBytes) {
  if (!formatRead_) fail("is a WAV file without a format chunk before its samples", "check how it was made");
  dataStart_ = window_->offset();
  promised_ = dataBytes;
  const uint64_t dataEnd = dataStart_ + dataBytes, riffEnd = riffBytes + 8;
  consistent_ = riffEnd == dataEnd || riffEnd == dataEnd + dataBytes % 2;

  const std::optional<uint64_t> size = source_->size();
  // A plain file that has grown beyond 4 GiB: both lengths are what is left of them in 32 bits.
  const bool wrapped = consistent_ && size && *size >= dataEnd + kFourGiB && (*size - riffEnd) % kFourGiB < 2;
  unknown_ = wrapped || (dataBytes == 0 && (riffEnd <= dataStart_ + 1 || riffBytes >= kUnknownFrom));
  tooShort_ = wrapped;
  end_ = unknown_ ? UINT64_MAX : dataEnd;
  if (size) {
    const uint64_t held = *size - std::min(*size, dataStart_);
    format_.frames = (unknown_ ? held : std::min(held, dataBytes)) / frameBytes_;
  }
}

size_t WavReader::fillSamples() {
  const size_t visible = window_->fill(frameBytes_);
  const uint64_t left = end_ - window_->offset();
  const auto held = static_cast<size_t>(std::min<uint64_t>(visible, left));
  if (held >= frameBytes_ || left > visible || endsAsPromised(held)) return held;
  unknown_ = tooShort_ = true;
  end_ = UINT64_MAX;
  return window_->fill(frameBytes_);
}

// All promised bytes have been taken but the next `held` ones. What follows must be the end, another chunk, or something
// that both lengths of the header leave out.
bool WavReader::endsAsPromised(size_t held) {
  window_->fill(held + 1 + 8);
  return consistent_ || isChunkAt(held) || isChunkAt(held + promised_ % 2);
}

// Whether a chunk begins behind the next `at` bytes, or nothing follows them.
bool WavReader::isChunkAt(size_t at) const {
  if (window_->visible() <= at) return true;
  if (window_->visible() < at + 8) return false;
  const uint8_t *const id = window_->data() + at;
  const auto isIdentifier = [](uint8_t c) { return std::isalnum(c) || c == ' ' || c == '_' || c == '.'; };
  if (!std::all_of(id, id + 4, isIdentifier)) return false;
  const std::optional<uint64_t> size = source_->size();
  return !size || window_->offset() + at + 8 + getLe32(id + 4) <= *size;
}

void WavReader::endSamples(size_t strayBytes) {
  const uint64_t given = window_->offset() + strayBytes - dataStart_;
  if (tooShort_) {
    remark(false,
           fmt::format("its header's length, {}, is false; read to the real end, {}", counted(promised_, "byte"),
                       counted(given, "byte")),
           {});
  } else if (unknown_ || (given < promised_ && promised_ >= kUnknownFrom)) {
    remark(false, "its header gives no length; read to the real end, " + counted(given, "byte"), {});
  } else if (given < promised_) {
    remark(true, fmt::format("is cut off: {} of samples are promised, {} are there", counted(promised_, "byte"), given),
           "fetch the whole file");
  }
  if (strayBytes > 0) remark(true, "ends with " + counted(strayBytes, "byte") + " that are no whole sample frame", {});
  window_->consume(strayBytes);
  const bool chunkFollows = isChunkAt(0) || isChunkAt(promised_ % 2);
  if (chunkFollows && keep_) passTrailingChunks();
  const uint64_t followed = window_->skip(UINT64_MAX);
  if (!chunkFollows)
    remark(false, counted(followed, "byte") + " after the end that its header names were not read", {});
}

void WavReader::passTrailingChunks() {
  if (!isChunkAt(0)) window_->consume(1);
  while (window_->fill(8) >= 8 && isChunkAt(0)) passChunk(*window_, keep_, KeptChunks::Side::behindData);
}

}  // namespace qav::tool
