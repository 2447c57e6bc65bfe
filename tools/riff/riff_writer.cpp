#include "tools/riff/riff_writer.h"

#include <fmt/format.h>

#include <cstring>

#include "tools/io/little_endian.h"
#include "tools/io/message.h"

namespace qav::tool {

namespace {

constexpr uint32_t kUnknownLength = 0xFFFFFFFF;
constexpr uint32_t kDs64Bytes = 28;  // RIFF size, data size, samples, and an empty table

// From here on it is taken for possible that a RIFF file will be too short, for expectations are rough.
constexpr uint64_t kLargeBytes = uint64_t{1} << 30;

}  // namespace

RiffWriter::RiffWriter(OutputFile &out, const KeptChunks *chunks, std::optional<uint64_t> expectedBytes)
    : out_(out), chunks_(chunks), roomForRf64_(out.canPatch() && expectedBytes.value_or(kLargeBytes) >= kLargeBytes) {
  uint8_t head[12] = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E'};
  putLe(head + 4, kUnknownLength, 4);
  out_.write(head, sizeof head);
  const uint8_t room[kDs64Bytes] = {};
  if (roomForRf64_) chunk("JUNK", room, sizeof room);
}

uint64_t RiffWriter::chunk(const char *id, const void *content, size_t bytes) {
  uint8_t header[8];
  std::memcpy(header, id, 4);
  putLe(header + 4, bytes, 4);
  out_.write(header, sizeof header);
  const uint64_t offset = out_.size();
  out_.write(content, bytes);
  if ((bytes & 1) != 0) out_.write("", 1);
  return offset;
}

uint64_t RiffWriter::beginData() {
  const uint64_t chunksOffset = out_.size();
  if (chunks_) chunks_->write(out_, KeptChunks::Side::beforeData);
  uint8_t header[8] = {'d', 'a', 't', 'a'};
  putLe(header + 4, kUnknownLength, 4);
  out_.write(header, sizeof header);
  dataOffset_ = out_.size();
  return chunksOffset;
}

std::string RiffWriter::finish(uint64_t samples, bool withChunksBehind) {
  const KeptChunks *const behind = withChunksBehind ? chunks_ : nullptr;
  const uint64_t behindBytes = behind ? behind->bytes(KeptChunks::Side::behindData) : 0;
  if (!out_.canPatch()) {
    // Where the data has no length nothing can follow it.
    if (behindBytes == 0) return {};
    return fmt::format("the chunks behind the data, {}, are left out: a pipe has no place for them",
                       counted(behindBytes, "byte"));
  }
  const uint64_t dataBytes = out_.size() - dataOffset_;
  if ((dataBytes & 1) != 0) out_.write("", 1);
  if (behind) behind->write(out_, KeptChunks::Side::behindData);
  const uint64_t riffBytes = out_.size() - 8;
  if (riffBytes < kUnknownLength) {
    uint8_t size[4];
    putLe(size, riffBytes, 4);
    out_.patch(4, size, 4);
    putLe(size, dataBytes, 4);
    out_.patch(dataOffset_ - 4, size, 4);
    return {};
  }
  if (!roomForRf64_) return "the output is longer than a WAV header can say; it states an unknown length";
  uint8_t ds64[8 + kDs64Bytes] = {'d', 's', '6', '4'};
  putLe(ds64 + 4, kDs64Bytes, 4);
  putLe(ds64 + 8, riffBytes, 8);
  putLe(ds64 + 16, dataBytes, 8);
  putLe(ds64 + 24, samples, 8);
  out_.patch(0, "RF64", 4);
  out_.patch(12, ds64, sizeof ds64);
  return {};
}

}  // namespace qav::tool
