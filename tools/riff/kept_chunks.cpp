#include "tools/riff/kept_chunks.h"

#include <algorithm>
#include <cstring>

#include "tools/io/little_endian.h"

namespace qav::tool {

namespace {

constexpr size_t kHeaderBytes = 8;
constexpr uint64_t kFirstChunkOffset = 12;

bool is(const uint8_t *header, const char *id) { return std::memcmp(header, id, 4) == 0; }

// A JUNK chunk in front of all others holds the place of a ds64 chunk.
bool isOfTheSamples(const uint8_t *header, uint64_t offset) {
  for (const char *id : {"fmt ", "fact", "data", "ds64"})
    if (is(header, id)) return true;
  return is(header, "JUNK") && offset == kFirstChunkOffset;
}

uint64_t chunkBytes(const ByteWindow &window) {
  const uint64_t content = getLe32(window.data() + 4);
  return kHeaderBytes + content + (content & 1);
}

}  // namespace

uint64_t KeptChunks::take(ByteWindow &window, Side side) {
  if (isOfTheSamples(window.data(), window.offset())) return window.skip(chunkBytes(window));
  SpillBuffer &to = side == Side::beforeData ? before_ : behind_;
  const uint64_t start = to.size();
  const uint64_t promised = getLe32(window.data() + 4);
  if (side == Side::beforeData && !bext_ && is(window.data(), "bext")) bext_ = Span{start + kHeaderBytes, promised};
  to.append(window.data(), kHeaderBytes);
  window.consume(kHeaderBytes);
  uint64_t taken = 0;
  while (taken < promised) {
    const auto n = static_cast<size_t>(std::min<uint64_t>(promised - taken, window.fill(1)));
    if (n == 0) break;
    to.append(window.data(), n);
    window.consume(n);
    taken += n;
  }
  if (taken < promised) {
    uint8_t size[4];
    putLe(size, taken, 4);
    to.patch(start + 4, size, 4);
  }
  if ((taken & 1) != 0) to.append("", 1);
  return kHeaderBytes + taken + window.skip(promised & 1);
}

void KeptChunks::write(OutputFile &out, Side side) const {
  buffer(side).read([&](const void *data, size_t bytes) { out.write(data, bytes); });
}

void KeptChunks::clear() {
  before_.clear();
  behind_.clear();
  bext_.reset();
}

uint64_t passChunk(ByteWindow &window, KeptChunks *keep, KeptChunks::Side side) {
  return keep ? keep->take(window, side) : window.skip(chunkBytes(window));
}

}  // namespace qav::tool
